#include "control/CFlashStorage.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "CException.h"
#include "NFileUtil.h"
#include "RuntimeRoot.h"
#include "text/NErrorText.h"

namespace {

// A stored text longer than any control holds is not one this system wrote.
const size_t kMaxFileSize = kMaxControlTextLength;

// Whole-text decimal integer in the int range.
bool ParseInt(const std::string& text, int& value) {
    if (text.empty() || text.size() > 12) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const long parsed = strtol(text.c_str(), &end, 10);
    if (errno != 0 || end != text.c_str() + text.size() || parsed < INT_MIN || parsed > INT_MAX) {
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

}  // namespace

CFlashStorage::CFlashStorage(CEventDispatcher& dispatcher, ILog& log, const IMonotonicClock& clock,
                             const std::string& directory, unsigned int saveDelayMs)
    : m_dispatcher(dispatcher), m_log(log), m_directory(NRuntimeRoot::Path(directory)),
      m_saveTimer(clock, saveDelayMs) {
    if (m_directory.empty() || m_directory.back() != '/') {
        m_directory += '/';
    }
    std::error_code error;
    std::filesystem::create_directories(m_directory, error);
    if (error) {
        m_log.LogError("Create storage for %s error: %s", m_directory.c_str(), error.message().c_str());
    }
    m_dispatcher.AddPeriodicTask(*this);
}

CFlashStorage::~CFlashStorage() { m_dispatcher.RemovePeriodicTask(*this); }

void CFlashStorage::Bind(const CProjCon& control) {
    if (!control.IsPersistent()) {
        THROW_EXCEPTION("%s is not a persistent control", control.GetCode().c_str());
    }
    m_bound.insert(control.GetCode());
}

void CFlashStorage::BindAllPersistent() {
    for (const auto& entry : m_dispatcher.GetControls()) {
        if (entry.second->IsPersistent()) {
            m_bound.insert(entry.first);
        }
    }
}

void CFlashStorage::LoadAll() {
    for (const std::string& code : m_bound) {
        CProjCon* control = m_dispatcher.GetControl(code);
        if (control) {
            Load(*control);
        }
    }
}

void CFlashStorage::Load(CProjCon& control) {
    const char* code = control.GetCode().c_str();
    const bool text = IsTextType(control.GetDisplayType());
    const std::string path = GetFilePath(control.GetCode());
    std::string contents;
    std::string error;
    const NFileUtil::EReadResult read = NFileUtil::ReadFile(path, kMaxFileSize, contents, error);
    if (read == NFileUtil::EReadResult::MISSING) {
        if (text) {
            m_log.Log("Load default text of %s : %s", code, control.GetText().c_str());
        } else {
            m_log.Log("Load default value of %s : %d", code, control.GetValue());
        }
        return;
    }
    if (read != NFileUtil::EReadResult::READ) {
        m_log.LogError("Load value of %s error: %s", code, error.c_str());
        return;
    }
    EError result = ERR_NONE;
    if (text) {
        if (contents.find('\0') != std::string::npos) {
            m_log.LogError("Load value of %s error: %s", code, "text holds a NUL character");
            return;
        }
        m_log.Log("Load text of %s : %s", code, contents.c_str());
        result = control.SetText(contents, CHANGE_UPDATE_HARDWARE);
    } else {
        int value = 0;
        if (!ParseInt(contents, value)) {
            m_log.LogError("Load value of %s error: %s", code, "not a decimal number");
            return;
        }
        m_log.Log("Load value of %s : %d", code, value);
        result = control.SetValue(value, CHANGE_UPDATE_HARDWARE);
    }
    if (result != ERR_NONE) {
        m_log.LogError("Load value of %s error: %s", code, NErrorText::GetErrorString(result).c_str());
    }
    // What was just read is what the file holds; nothing to write back.
    control.ClearSavePending();
}

bool CFlashStorage::Write(const CProjCon& control) {
    const std::string& code = control.GetCode();
    std::string contents;
    if (IsTextType(control.GetDisplayType())) {
        contents = control.GetText();
        m_log.LogDebug("save text of %s : %s", code.c_str(), contents.c_str());
    } else {
        contents = std::to_string(control.GetValue());
        m_log.LogDebug("save value of %s : %d", code.c_str(), control.GetValue());
    }

    if (!NFileUtil::WriteFileAtomically(GetFilePath(code), contents, 0644)) {
        m_log.LogError("Save value of %s error: %s", code.c_str(), strerror(errno));
        return false;
    }
    return true;
}

unsigned int CFlashStorage::Save(bool force) {
    unsigned int written = 0;
    for (const std::string& code : m_bound) {
        CProjCon* control = m_dispatcher.GetControl(code);
        if (!control || (!force && !control->IsSavePending())) {
            continue;
        }
        if (Write(*control)) {
            control->ClearSavePending();
            ++written;
        }
    }
    return written;
}

void CFlashStorage::Update() {
    if (m_pendingSeen) {
        if (m_saveTimer.IsExpired()) {
            m_pendingSeen = false;
            Save(false);
            m_rescan = true;  // a control whose write failed is still pending: try again later
        }
        return;
    }
    const uint32_t noted = m_dispatcher.GetSavesNoted();
    if (noted == m_savesSeen && !m_rescan) {
        return;
    }
    m_savesSeen = noted;
    m_rescan = false;
    for (const std::string& code : m_bound) {
        const CProjCon* control = m_dispatcher.GetControl(code);
        if (control && control->IsSavePending()) {
            m_pendingSeen = true;
            m_saveTimer.Restart();
            return;
        }
    }
}
