#include "NText.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QString>
#include <QTranslator>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CException.h"
#include "NFileUtil.h"
#include "RuntimeRoot.h"

namespace NText {
namespace {

const char kContext[] = "NText";

struct SResourceText {
    int id;
    const char* text;
};

// The known source texts, ascending by id; every other id has the empty text.
const SResourceText kTexts[] = {
    {1, "On"},
    {2, "Off"},
    {3, "Yes"},
    {4, "No"},
    {5, "OK"},
    {6, "Warning"},
    {7, "Error"},
    {8, "Cancel"},
    {9, "Reserved"},
    {10, "Failed"},
    {11, "Auto Detect"},
    {12, "N/A"},
    {13, "Unknown"},
    {14, "Detected"},
    {15, "Not Detected"},
    {16, "Unexpected Behavior"},
    {17, "Detection Fault"},
    {18, "Communication Fault"},
    {19, "Initialization Fault"},
    {20, "Runtime Fault"},
    {21, "Critical Fault"},
    {22, "Not Present"},
    {23, "Not Specified"},
    {24, "Upgrading"},
    {25, "Alarms"},
    {26, "Configuration"},
    {27, "System"},
    {28, "Signal"},
    {29, "Lamp Info"},
    {2340, "Vert"},
};

const char* const kFileSuffixes[] = {"fr", "de", "es", "it", "zh", "ja", "ko", "ru", "fo"};

// One translator per language, loaded when first needed; guarded by Mutex().
struct STranslators {
    ELanguage current = LANG_ENGLISH;
    std::array<std::unique_ptr<QTranslator>, 10> loaded;
};

std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
}

STranslators& Translators() {
    static STranslators translators;
    return translators;
}

const char* SourceText(int id) {
    if (id < 0 || id > kMaxResourceId) {
        THROW_EXCEPTION("Invalid Resource Id: %d", id);
    }
    const auto it = std::lower_bound(std::begin(kTexts), std::end(kTexts), id,
                                     [](const SResourceText& entry, int wanted) { return entry.id < wanted; });
    return it != std::end(kTexts) && it->id == id ? it->text : "";
}

// Fallback directories have a mutex of their own: GetTranslationFile is called with
// Mutex() held and without it.
std::mutex& FallbackMutex() {
    static std::mutex mutex;
    return mutex;
}
std::vector<std::string>& FallbackDirs() {
    static std::vector<std::string> dirs;
    return dirs;
}

// The translator of lang, loading it on first use. Mutex() must be held.
QTranslator& TranslatorLocked(ELanguage lang) {
    const std::string path = GetTranslationFile(lang);  // rejects a language before it indexes the table
    std::unique_ptr<QTranslator>& slot = Translators().loaded[static_cast<size_t>(lang)];
    if (!slot) {
        auto translator = std::make_unique<QTranslator>();
        if (!translator->load(QString::fromStdString(path))) {
            THROW_EXCEPTION("Unable to load translator file");
        }
        slot = std::move(translator);
    }
    return *slot;
}

}  // namespace

std::string GetTranslationFile(ELanguage lang) {
    if (lang < LANG_FRENCH || lang > LANG_FIELD) {
        THROW_EXCEPTION("Unsupported language %d", static_cast<int>(lang));
    }
    const std::string name = std::string("prototype_") + kFileSuffixes[lang - 1] + ".qm";
    const std::string rooted = NRuntimeRoot::Path("/usr/bin/translations/" + name);
    if (access(rooted.c_str(), F_OK) == 0) {
        return rooted;
    }
    std::lock_guard<std::mutex> lock(FallbackMutex());
    for (const std::string& dir : FallbackDirs()) {
        const std::string candidate = dir + "/" + name;
        if (access(candidate.c_str(), F_OK) == 0) {
            return candidate;
        }
    }
    return rooted;
}

void SetTranslationFallbackDirs(const std::vector<std::string>& dirs) {
    std::lock_guard<std::mutex> lock(FallbackMutex());
    FallbackDirs() = dirs;
}

void SetTranslationFallbacksBesideExecutable() {
    const std::string dir = NFileUtil::GetExecutableDir();
    if (dir.empty()) {
        return;
    }
    SetTranslationFallbackDirs({dir + "/../translations", dir + "/translations"});
}

std::string GetSourceString(int id) { return SourceText(id); }

std::string GetString(int id, ELanguage lang) {
    const char* source = SourceText(id);
    std::lock_guard<std::mutex> lock(Mutex());
    if (lang == LANG_CURRENT) {
        lang = Translators().current;
    }
    if (lang == LANG_ENGLISH || source[0] == '\0') {
        return source;
    }
    const QString translated = TranslatorLocked(lang).translate(kContext, source);
    return translated.isEmpty() ? std::string(source) : translated.toStdString();
}

void SetLanguage(ELanguage lang) {
    std::lock_guard<std::mutex> lock(Mutex());
    STranslators& translators = Translators();
    if (lang == LANG_CURRENT || lang == translators.current) {
        return;
    }
    // Load the new translator before touching the old one: a failure changes nothing.
    QTranslator* next = lang == LANG_ENGLISH ? nullptr : &TranslatorLocked(lang);
    if (QCoreApplication::instance()) {
        if (next && !QCoreApplication::installTranslator(next)) {
            THROW_EXCEPTION("Unable to install QtTranslator");
        }
        if (translators.current != LANG_ENGLISH) {
            QCoreApplication::removeTranslator(translators.loaded[static_cast<size_t>(translators.current)].get());
        }
    }
    translators.current = lang;
}

ELanguage GetCurrentLanguage() {
    std::lock_guard<std::mutex> lock(Mutex());
    return Translators().current;
}

}  // namespace NText
