#include <gtest/gtest.h>

#include <QCoreApplication>

#include <filesystem>
#include <memory>
#include <string>

#include "CException.h"
#include "TempRoot.h"
#include "ThrownMessage.h"
#include "text/NText.h"

namespace {

// One runtime root holding the French file, with the build's directory as fallback for
// the German one, serves the whole suite: a translator, once loaded, stays cached for the
// process, so every test must see the same files.
class NTextTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_root = std::make_unique<CTempRoot>();
        const std::string dir = s_root->MakeDir("/usr/bin/translations");
        std::filesystem::copy_file(std::string(PROJ_TRANSLATIONS_DIR) + "/prototype_fr.qm", dir + "/prototype_fr.qm");
        NText::SetTranslationFallbackDirs({s_root->Path("/nowhere"), PROJ_TRANSLATIONS_DIR});
    }
    static void TearDownTestSuite() { s_root.reset(); }
    void TearDown() override { NText::SetLanguage(NText::LANG_ENGLISH); }

    static std::unique_ptr<CTempRoot> s_root;
};

std::unique_ptr<CTempRoot> NTextTest::s_root;

TEST_F(NTextTest, EnglishTextsByResourceIdAndOutsideRangeThrows) {
    const std::pair<int, std::string> texts[] = {{1, "On"}, {29, "Lamp Info"}, {2340, "Vert"},
                                                 {0, ""},   {500, ""},          {2341, ""}};
    for (const auto& [id, text] : texts) {
        EXPECT_EQ(NText::GetString(id), text) << id;
    }
    EXPECT_EQ(ThrownMessage([] { NText::GetString(2342); }), "Invalid Resource Id: 2342");
    EXPECT_EQ(ThrownMessage([] { NText::GetString(-1); }), "Invalid Resource Id: -1");
}

TEST_F(NTextTest, CurrentLanguageTranslatesAndExplicitLanguageLeavesItAlone) {
    NText::SetLanguage(NText::LANG_FRENCH);
    EXPECT_EQ(NText::GetCurrentLanguage(), NText::LANG_FRENCH);
    EXPECT_EQ(NText::GetString(1), "Activ\xC3\xA9");
    EXPECT_EQ(NText::GetString(2340), "Vert");  // no translation: stays English
    EXPECT_EQ(NText::GetSourceString(1), "On");
    EXPECT_EQ(NText::GetString(29, NText::LANG_GERMAN), "Lampeninfo");  // explicit language
    EXPECT_EQ(NText::GetString(29), "Infos lampe");                     // leaves the current one alone

    NText::SetLanguage(NText::LANG_ENGLISH);
    EXPECT_EQ(NText::GetString(1, NText::LANG_GERMAN), "Ein");
    EXPECT_EQ(NText::GetCurrentLanguage(), NText::LANG_ENGLISH);
    EXPECT_EQ(NText::GetString(1), "On");
    EXPECT_EQ(NText::GetString(29), "Lamp Info");
}

TEST_F(NTextTest, TranslationFilesComeFromTheRootFirstThenTheFallbacks) {
    EXPECT_EQ(NText::GetTranslationFile(NText::LANG_FRENCH), s_root->Path("/usr/bin/translations/prototype_fr.qm"));
    EXPECT_EQ(NText::GetTranslationFile(NText::LANG_GERMAN), std::string(PROJ_TRANSLATIONS_DIR) + "/prototype_de.qm");
    // Found nowhere: the root's path, which the load failure then names.
    EXPECT_EQ(NText::GetTranslationFile(NText::LANG_SPANISH), s_root->Path("/usr/bin/translations/prototype_es.qm"));
}

TEST_F(NTextTest, MissingFileOrUnsupportedLanguageLeavesLanguageUnchanged) {
    NText::SetLanguage(NText::LANG_GERMAN);
    EXPECT_EQ(ThrownMessage([] { NText::SetLanguage(NText::LANG_SPANISH); }), "Unable to load translator file");
    EXPECT_EQ(NText::GetCurrentLanguage(), NText::LANG_GERMAN);
    EXPECT_EQ(NText::GetString(1), "Ein");
    EXPECT_EQ(ThrownMessage([] { NText::GetString(1, NText::LANG_SPANISH); }), "Unable to load translator file");
    EXPECT_EQ(ThrownMessage([] { NText::SetLanguage(static_cast<NText::ELanguage>(99)); }), "Unsupported language 99");
    EXPECT_EQ(ThrownMessage([] { NText::SetLanguage(static_cast<NText::ELanguage>(-2)); }), "Unsupported language -2");
    EXPECT_EQ(ThrownMessage([] { NText::GetString(1, static_cast<NText::ELanguage>(99)); }), "Unsupported language 99");
    EXPECT_EQ(NText::GetCurrentLanguage(), NText::LANG_GERMAN);
}

TEST_F(NTextTest, ApplicationTranslationFollowsLanguage) {
    static int argc = 1;
    static char name[] = "text_test";
    static char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    auto translate = [] { return QCoreApplication::translate("NText", "Off").toStdString(); };

    EXPECT_EQ(translate(), "Off");
    NText::SetLanguage(NText::LANG_FRENCH);
    EXPECT_EQ(translate(), "D\xC3\xA9sactiv\xC3\xA9");
    NText::SetLanguage(NText::LANG_GERMAN);
    EXPECT_EQ(translate(), "Aus");
    NText::SetLanguage(NText::LANG_ENGLISH);
    EXPECT_EQ(translate(), "Off");
}

}  // namespace
