#include "NText.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CException.h"
#include "ITextTranslator.h"
#include "NFileUtil.h"
#include "RuntimeRoot.h"
#include "module/NModule.h"

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
    // Control names, from 1001 on.
    {1001, "Projector Address"},
    {1002, "Routing Mode"},
    {1003, "Emergency Mode"},
    {1004, "Control Port"},
    {1005, "Network Remote Access"},
    {1006, "Port A Remote Access"},
    {1007, "Port A Baud Rate"},
    {1008, "Port A Serial Mode"},
    {1009, "Port A Flow Control"},
    {1010, "Port A Protocol"},
    {1011, "Port B Remote Access"},
    {1012, "Port B Baud Rate"},
    {1013, "Port B Serial Mode"},
    {1014, "Port B Flow Control"},
    {1015, "Port B Protocol"},
    {1016, "Port C Remote Access"},
    {1017, "Port C Baud Rate"},
    {1018, "Port C Serial Mode"},
    {1019, "Port C Flow Control"},
    {1020, "Port C Protocol"},
    {1021, "USB Port Remote Access"},
    {1022, "USB Port Baud Rate"},
    {1023, "USB Port Serial Mode"},
    {1024, "USB Port Flow Control"},
    {1025, "USB Port Protocol"},
    {1026, "Broadcast Key"},
    {1027, "Laser Power"},
    {1028, "Power"},
    {1029, "Laser Red"},
    {1030, "Laser Green"},
    {1031, "Laser Blue"},
    {1032, "Laser Gain"},
    {1033, "Output Frame Rate"},
    {1034, "Brightness"},
    {1035, "Contrast"},
    {1036, "Shutter"},
    {1037, "Audio Mute"},
    {1038, "Freeze"},
    {1039, "Speaker Volume"},
    {1040, "Microphone Volume"},
    {1041, "Filter Hours"},
    {1042, "Input Resolution"},
    {1043, "Lamp"},
    {1044, "Input"},
    {1045, "Projector Name"},
    {1046, "IP Address"},
    {1047, "Description"},
    {1048, "Reset Settings"},
    {1049, "Gamma"},
    {1050, "Factory Setting"},
    {1051, "Protected Setting"},
    {1052, "Projector Hours"},
    {1053, "Main Menu"},
    {1054, "Picture"},
    {1055, "Custom Command"},
    {1056, "Color"},
    {1057, "Tint"},
    {1058, "Sharpness"},
    {1059, "Color Temperature"},
    {1060, "Red Gain"},
    {1061, "Green Gain"},
    {1062, "Blue Gain"},
    {1063, "Red Offset"},
    {1064, "Green Offset"},
    {1065, "Blue Offset"},
    {1066, "Aspect Ratio"},
    {1067, "Orientation"},
    {1068, "Vertical Keystone"},
    {1069, "Horizontal Keystone"},
    {1070, "Zoom"},
    {1071, "Focus"},
    {1072, "Auto Input Search"},
    {1073, "Signal"},
    {1074, "Vertical Frequency"},
    {1075, "Lamp Mode"},
    {1076, "Lamp Life"},
    {1077, "DHCP"},
    {1078, "Subnet Mask"},
    {1079, "Gateway"},
    {1080, "DNS Server"},
    {1081, "MAC Address"},
    {1082, "Language"},
    {1083, "Sleep Timer"},
    {1084, "Auto Power Off"},
    {1085, "Serial Number"},
    {1086, "Model"},
    {1087, "Software Version"},
    {1088, "Power State"},
    {1089, "Lamp Hours"},
    {1090, "Lamp Type"},
    {2340, "Vert"},
};

const char* const kFileSuffixes[] = {"fr", "de", "es", "it", "zh", "ja", "ko", "ru", "fo"};

// One translator per language, loaded when first needed; guarded by Mutex().
struct STranslators {
    ELanguage current = LANG_ENGLISH;
    std::array<std::unique_ptr<ITextTranslator>, 10> loaded;
};

std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
}

// Never destroyed: Qt comes with the module, after this object may have been made, and
// is torn down at exit before it; a translator destroyed then would outlive Qt.
STranslators& Translators() {
    static STranslators* const translators = new STranslators;
    return *translators;
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

// The Qt translation module's entry point, loading the module on first use (beside the
// library holding this code). Mutex() must be held.
TLoadTextTranslator ModuleLocked() {
    static TLoadTextTranslator load = nullptr;
    if (load) {
        return load;
    }
    load = reinterpret_cast<TLoadTextTranslator>(NModule::LoadEntry(reinterpret_cast<const void*>(&ModuleLocked),
                                                                     kTextTranslatorModule, kTextTranslatorEntry,
                                                                     "the translation module"));
    return load;
}

// The translator of lang, loading it on first use. Mutex() must be held.
ITextTranslator& TranslatorLocked(ELanguage lang) {
    const std::string path = GetTranslationFile(lang);  // rejects a language before it indexes the table
    std::unique_ptr<ITextTranslator>& slot = Translators().loaded[static_cast<size_t>(lang)];
    if (!slot) {
        std::unique_ptr<ITextTranslator> translator(ModuleLocked()(path.c_str()));
        if (!translator) {
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
    const std::string translated = TranslatorLocked(lang).Translate(kContext, source);
    return translated.empty() ? std::string(source) : translated;
}

void SetLanguage(ELanguage lang) {
    std::lock_guard<std::mutex> lock(Mutex());
    STranslators& translators = Translators();
    if (lang == LANG_CURRENT || lang == translators.current) {
        return;
    }
    // Load the new translator before touching the old one: a failure changes nothing.
    ITextTranslator* next = lang == LANG_ENGLISH ? nullptr : &TranslatorLocked(lang);
    if (next && !next->Install()) {
        THROW_EXCEPTION("Unable to install QtTranslator");
    }
    if (translators.current != LANG_ENGLISH) {
        translators.loaded[static_cast<size_t>(translators.current)]->Remove();
    }
    translators.current = lang;
}

ELanguage GetCurrentLanguage() {
    std::lock_guard<std::mutex> lock(Mutex());
    return Translators().current;
}

}  // namespace NText
