#pragma once
// NText: the user-visible texts of the control plane (status labels, value names, menu
// words), addressed by resource identifier 0..2341 and translated into a language.
//
// Every identifier has an English source text; identifiers without a known text (and 0
// and 2341) have the empty text. A text is translated with the Qt translator of its
// language (context "NText", the English text as source); a text without a translation
// stays English. Qt is loaded with its translation module (ITextTranslator.h) the first
// time another language is needed; English needs neither. A missing module throws
// "Unable to load the translation module: ...".
//
// Translation files, one per language, lie under the runtime root:
//   "/usr/bin/translations/prototype_<xx>.qm" with xx = fr, de, es, it, zh, ja, ko, ru, fo.
// A file missing there is looked for in the fallback directories a host names (where its
// build or installation keeps them), so a fresh runtime root needs no copies.
// Number 9 ("fo") is the field language: the slot for a translation that a site adds
// for its own audience; the library gives it no fixed language.
//
// The current language is process-wide. The translator of the current language is also
// installed into Qt's application translators when a QCoreApplication exists, so that
// QCoreApplication::translate elsewhere in the process follows the same language; lookups
// do not need an application object.
// Thread contract: every function may be called from any thread (one process-wide mutex).
// Errors throw CException.

#include <string>
#include <vector>

namespace NText {

enum ELanguage : int {
    LANG_CURRENT = -1,
    LANG_ENGLISH = 0,
    LANG_FRENCH = 1,
    LANG_GERMAN = 2,
    LANG_SPANISH = 3,
    LANG_ITALIAN = 4,
    LANG_CHINESE = 5,
    LANG_JAPANESE = 6,
    LANG_KOREAN = 7,
    LANG_RUSSIAN = 8,
    LANG_FIELD = 9,
};

constexpr int kMaxResourceId = 2341;

// The text of id in lang (LANG_CURRENT: the current language), UTF-8.
// Throws "Invalid Resource Id: %d" for an id outside 0..2341, and the SetLanguage errors
// when another language's file must be loaded and cannot be.
std::string GetString(int id, ELanguage lang = LANG_CURRENT);

// The English source text of id, untranslated. Throws like GetString.
std::string GetSourceString(int id);

// Makes lang the current language. Setting the current one (or LANG_CURRENT) does
// nothing; English removes the translator. Any other language's file is loaded first and
// only then replaces the old translator, so a failure leaves the language unchanged:
// "Unsupported language %d" (no such language), "Unable to load translator file" (file
// missing or unreadable), "Unable to install QtTranslator" (Qt refused it).
void SetLanguage(ELanguage lang);
ELanguage GetCurrentLanguage();

// The translation file of lang: under the runtime root, or else in the first fallback
// directory that holds it, or else (none has it) the runtime root's path. Throws
// "Unsupported language %d" for English and values outside 1..9.
std::string GetTranslationFile(ELanguage lang);

// Directories searched, in order, after the runtime root's; none by default.
void SetTranslationFallbackDirs(const std::vector<std::string>& dirs);
// The build tree's and an installation's places beside the running executable:
// "<exe dir>/../translations" (the build) and "<exe dir>/translations" (cmake --install
// puts programs and translations together in usr/bin, the projector's own layout).
void SetTranslationFallbacksBesideExecutable();

}  // namespace NText
