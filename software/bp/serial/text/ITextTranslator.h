#pragma once
// ITextTranslator: one language's translation file, loaded, as NText uses it.
//
// The translators are made by the Qt translation module ("libprojector_text_qt.so",
// beside libprojector_bp_serial), which NText loads with dlopen the first time a language
// other than English is needed. A process that stays in English (the default) so never
// maps Qt, ICU and their libraries: about 3 MiB of resident memory in the controller.
// The module is found by the path of the library holding NText, so the build tree and an
// installation work alike; it is never unloaded.
//
// Threads: NText calls a translator only with its process-wide mutex held.

#include <string>

class ITextTranslator {
public:
    virtual ~ITextTranslator() = default;
    // The UTF-8 translation of source in context; empty when the file has none.
    virtual std::string Translate(const char* context, const char* source) const = 0;
    // Adds to (Install) or takes from (Remove) QCoreApplication's translators when an
    // application object exists, so that QCoreApplication::translate elsewhere in the
    // process follows NText's language. Install is false when Qt refuses the translator.
    virtual bool Install() = 0;
    virtual void Remove() = 0;
};

// The module's one entry point, looked up by this name: a translator of the .qm file at
// path, or null when it does not load. The caller owns the result.
extern "C" ITextTranslator* ProjectorLoadTextTranslator(const char* path);
using TLoadTextTranslator = ITextTranslator* (*)(const char* path);
constexpr const char* kTextTranslatorModule = "libprojector_text_qt.so";
constexpr const char* kTextTranslatorEntry = "ProjectorLoadTextTranslator";
