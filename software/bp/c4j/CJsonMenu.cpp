#include "CJsonMenu.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <utility>

#include "CException.h"
#include "NFileUtil.h"
#include "RuntimeRoot.h"

namespace {

enum class EReadResult { READ, MISSING, FAILED };

// A file descriptor closed when the scope ends.
struct SFd {
    int fd = -1;
    ~SFd() {
        if (fd >= 0) {
            close(fd);
        }
    }
};

// Reads a regular file of at most CJsonMenu::kMaxFileSize bytes. Only "no such file" is
// MISSING; a directory, a device, an oversized file or a read error is FAILED.
EReadResult ReadSmallFile(const std::string& path, std::string& contents) {
    SFd file;
    file.fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file.fd < 0) {
        return errno == ENOENT ? EReadResult::MISSING : EReadResult::FAILED;
    }
    struct stat info;
    if (fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        return EReadResult::FAILED;
    }
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t got = read(file.fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return EReadResult::FAILED;
        }
        if (got == 0) {
            break;
        }
        // The size is checked while reading, not from fstat: the file may grow meanwhile.
        if (text.size() + static_cast<size_t>(got) > CJsonMenu::kMaxFileSize) {
            return EReadResult::FAILED;
        }
        text.append(buffer, static_cast<size_t>(got));
    }
    contents.swap(text);
    return EReadResult::READ;
}

// Parses one JSON value; comments are allowed, trailing text and repeated keys are not.
bool ParseJson(const std::string& text, Json::Value& out) {
    Json::CharReaderBuilder builder;
    builder["allowComments"] = true;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    try {
        return reader->parse(text.data(), text.data() + text.size(), &out, &errors);
    } catch (const std::exception&) {
        // jsoncpp throws instead of reporting when nesting exceeds its stack limit.
        return false;
    }
}

bool IsListOfStrings(const Json::Value& value) {
    if (!value.isArray()) {
        return false;
    }
    for (const Json::Value& element : value) {
        if (!element.isString()) {
            return false;
        }
    }
    return true;
}

}  // namespace

CJsonMenu::CJsonMenu() : m_menu(Json::objectValue), m_favorites(Json::arrayValue) {}

void CJsonMenu::Initialize(const char* name) {
    m_menu = Json::Value(Json::objectValue);
    LoadMenuFile(name && *name ? name : kDefaultMenuName);
    FavLoad();
}

void CJsonMenu::LoadMenuFile(const std::string& name) {
    if (name.empty()) {
        THROW_EXCEPTION("Unable to find menu configuration - path not specified.");
    }
    const std::string path = NRuntimeRoot::Path(kMenuDirectory + name);
    std::string text;
    const EReadResult result = ReadSmallFile(path, text);
    if (result == EReadResult::MISSING) {
        THROW_EXCEPTION("Unable to find menu configuration %s", path.c_str());
    }
    Json::Value menu;
    if (result != EReadResult::READ || !ParseJson(text, menu) || !menu.isObject()) {
        THROW_EXCEPTION("Unable to read menu configuration %s", path.c_str());
    }
    m_menu.swap(menu);
}

void CJsonMenu::ConvertResIds() {}

bool CJsonMenu::GetMenuListing(const std::string& menuId, Json::Value& out) const {
    const Json::Value* menu = m_menu.find(menuId.data(), menuId.data() + menuId.size());
    if (!menu || !menu->isObject()) {
        return false;
    }
    out = *menu;
    return true;
}

void CJsonMenu::RemoveMenuItem(const std::string& menuId, const std::string& item) {
    const Json::Value* menu = m_menu.find(menuId.data(), menuId.data() + menuId.size());
    if (!menu || !menu->isObject()) {
        return;
    }
    static const std::string kItems = "items";
    const Json::Value* items = menu->find(kItems.data(), kItems.data() + kItems.size());
    if (!items || !items->isArray()) {
        return;
    }
    Json::Value kept(Json::arrayValue);
    for (const Json::Value& entry : *items) {
        if (!entry.isString() || entry.asString() != item) {
            kept.append(entry);
        }
    }
    if (kept.size() != items->size()) {
        // Both members exist, so operator[] only looks them up.
        m_menu[menuId][kItems].swap(kept);
    }
}

void CJsonMenu::FavLoad() {
    const std::string path = NRuntimeRoot::Path(kFavoritesPath);
    std::string text;
    const EReadResult result = ReadSmallFile(path, text);
    if (result == EReadResult::MISSING) {
        m_favorites = Json::Value(Json::arrayValue);
        return;
    }
    Json::Value favorites;
    if (result != EReadResult::READ || !ParseJson(text, favorites) || !IsListOfStrings(favorites)) {
        THROW_EXCEPTION("Unable to read favorites menu file %s", path.c_str());
    }
    m_favorites.swap(favorites);
}

void CJsonMenu::FavSet(const Json::Value& favorites) {
    if (!favorites.isArray()) {
        THROW_EXCEPTION("Unsupported favorite type: non-array");
    }
    for (Json::ArrayIndex i = 0; i < favorites.size(); ++i) {
        if (!favorites[i].isString()) {
            THROW_EXCEPTION("Unsupported favorite type: non-string at index %u", i);
        }
    }
    ReplaceFavorites(favorites);
}

void CJsonMenu::FavAppend(const std::string& name) {
    Json::Value favorites = m_favorites;
    favorites.append(Json::Value(name));
    ReplaceFavorites(std::move(favorites));
}

void CJsonMenu::FavDelete(const std::string& name) {
    Json::Value kept(Json::arrayValue);
    for (const Json::Value& entry : m_favorites) {
        if (entry.asString() != name) {  // the list holds strings only
            kept.append(entry);
        }
    }
    ReplaceFavorites(std::move(kept));
}

void CJsonMenu::FavClear() {
    ReplaceFavorites(Json::Value(Json::arrayValue));
}

Json::Value CJsonMenu::GetFavMenuListing() const {
    return m_favorites;
}

void CJsonMenu::ReplaceFavorites(Json::Value favorites) {
    SaveFavorites(favorites);
    m_favorites.swap(favorites);
}

void CJsonMenu::SaveFavorites(const Json::Value& favorites) {
    const std::string path = NRuntimeRoot::Path(kFavoritesPath);
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    // Bytes are written as they are, so any text a client stored reads back identical.
    builder["emitUTF8"] = true;
    const std::string text = Json::writeString(builder, favorites);
    if (text.size() > kMaxFileSize) {
        // FavLoad would refuse the file at the next start, losing the whole list.
        THROW_EXCEPTION("Unable to save favorites menu file %s: the list is too large", path.c_str());
    }

    const std::string directory = NRuntimeRoot::Path(kFavoritesDirectory);
    std::error_code created;
    std::filesystem::create_directories(directory, created);
    if (created) {
        errno = created.value();
        THROW_ERRNO_EXCEPTION("Unable to save favorites menu file %s", path.c_str());
    }

    if (!NFileUtil::WriteFileAtomically(path, text, 0644)) {
        THROW_ERRNO_EXCEPTION("Unable to save favorites menu file %s", path.c_str());
    }
}
