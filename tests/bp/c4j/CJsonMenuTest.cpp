#include <gtest/gtest.h>

#include <json/json.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "JsonText.h"
#include "CJsonMenu.h"
#include "TempRoot.h"
#include "ThrownMessage.h"

namespace {

namespace fs = std::filesystem;

const char* const kMenu = R"({
    // comments are allowed in the menu file
    "MAIN": {"label": "Main", "items": ["MMM+PICT", "NAM"]},
    "PICT": {"label": "Picture", "icon": "pic", "items": ["BRI", "CON", "BRI", 5, "Image"]},
    "VERSION": 3
})";

class CJsonMenuTest : public ::testing::Test {
protected:
    std::string FavFile() const { return m_root.Path(CJsonMenu::kFavoritesPath); }
    std::string StoredFavorites() const { return CTempRoot::ReadFile(FavFile()); }
    Json::Value Listing(const std::string& id) const {
        Json::Value out;
        return m_menu.GetMenuListing(id, out) ? out : Json::Value("(none)");
    }

    CTempRoot m_root;
    CJsonMenu m_menu;
};

TEST_F(CJsonMenuTest, InitializeLoadsTheNamedOrDefaultMenuAndTheFavourites) {
    m_root.WriteFile("/etc/menu.json", kMenu);
    m_root.WriteFile("/etc/small.json", R"({"MAIN": {"items": []}})");
    m_root.WriteFile(CJsonMenu::kFavoritesPath, R"(["BRI", "NET+PORT"])");

    m_menu.Initialize();
    EXPECT_EQ(Listing("PICT"), J(R"({"label": "Picture", "icon": "pic", "items": ["BRI", "CON", "BRI", 5, "Image"]})"));
    EXPECT_EQ(m_menu.GetFavMenuListing(), J(R"(["BRI", "NET+PORT"])"));

    m_menu.Initialize("small.json");
    EXPECT_EQ(Listing("PICT"), "(none)");  // the old tree is gone, not merged
    EXPECT_EQ(Listing("MAIN"), J(R"({"items": []})"));
    m_menu.Initialize("");
    EXPECT_EQ(Listing("PICT")["label"], "Picture");
}

TEST_F(CJsonMenuTest, FailedMenuLoadsReportTheCauseAndKeepThePreviousMenu) {
    m_root.WriteFile("/etc/menu.json", kMenu);
    m_root.MakeDir("/etc/folder.json");
    m_menu.LoadMenuFile("menu.json");
    std::vector<std::pair<std::string, std::string>> cases = {
        {"", "Unable to find menu configuration - path not specified."},
        {"absent.json", "Unable to find menu configuration " + m_root.Path("/etc/absent.json")},
        {"folder.json", "Unable to read menu configuration " + m_root.Path("/etc/folder.json")}};
    const std::pair<std::string, std::string> unreadable[] = {{"broken", R"({"MAIN": {"items": [})"},
        {"array", R"([{"MAIN": {}}])"}, {"extra", R"({"MAIN": {}} {"PICT": {}})"}, {"twice", R"({"MAIN": {}, "MAIN": {}})"}};
    for (const auto& [name, contents] : unreadable) {
        m_root.WriteFile("/etc/" + name + ".json", contents);
        cases.emplace_back(name + ".json", "Unable to read menu configuration " + m_root.Path("/etc/" + name + ".json"));
    }
    for (const auto& c : cases) {
        EXPECT_EQ(ThrownMessage([&] { m_menu.LoadMenuFile(c.first); }), c.second);
        EXPECT_EQ(Listing("MAIN"), J(R"({"label": "Main", "items": ["MMM+PICT", "NAM"]})")) << c.first;
    }
}

TEST_F(CJsonMenuTest, ListingAndRemovalConcernOnlyMenuObjects) {
    m_root.WriteFile("/etc/menu.json", kMenu);
    m_menu.Initialize();
    Json::Value out = "untouched";
    EXPECT_FALSE(m_menu.GetMenuListing("NONE", out));
    EXPECT_FALSE(m_menu.GetMenuListing("VERSION", out));
    EXPECT_EQ(out, "untouched");

    m_menu.RemoveMenuItem("PICT", "BRI");
    EXPECT_EQ(Listing("PICT")["items"], J(R"(["CON", 5, "Image"])"));
    EXPECT_EQ(Listing("MAIN")["items"], J(R"(["MMM+PICT", "NAM"])"));

    m_menu.RemoveMenuItem("PICT", "XYZ");
    m_menu.RemoveMenuItem("NONE", "BRI");
    m_menu.RemoveMenuItem("VERSION", "BRI");
    EXPECT_EQ(Listing("PICT")["items"], J(R"(["CON", 5, "Image"])"));
    EXPECT_EQ(Listing("NONE"), "(none)");  // a missing menu is not created by the lookup
}

// Every member is a menu with four upper-case letters as ID and an "items" array of strings;
// every sub-menu reference names a menu; each menu is reached from MAIN, without cycles.
TEST_F(CJsonMenuTest, ShippedMenuTreeLoadsAndIsWellFormed) {
    const std::string text = CTempRoot::ReadFile(PROJ_MENU_FILE);
    ASSERT_FALSE(text.empty());
    m_root.WriteFile("/etc/menu.json", text);
    m_menu.Initialize();

    const Json::Value tree = J(text);
    std::set<std::string> reached;
    std::set<std::string> path;
    std::function<void(const std::string&)> visit = [&](const std::string& id) {
        ASSERT_EQ(path.count(id), 0u) << "cycle through " << id;
        const Json::Value menu = Listing(id);
        ASSERT_TRUE(menu["items"].isArray()) << id;
        reached.insert(id);
        path.insert(id);
        for (const Json::Value& item : menu["items"]) {
            ASSERT_TRUE(item.isString()) << id;
            const std::string entry = item.asString();
            if (entry.rfind("MMM+", 0) == 0) {
                if (!tree.isMember(entry.substr(4))) {
                    ADD_FAILURE() << id << " refers to the missing " << entry;
                    continue;
                }
                visit(entry.substr(4));
            }
        }
        path.erase(id);
    };
    visit("MAIN");
    for (const std::string& id : tree.getMemberNames()) {
        EXPECT_EQ(id.size(), 4u) << id;
        EXPECT_EQ(id.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string::npos) << id;
        EXPECT_EQ(reached.count(id), 1u) << id << " cannot be reached from MAIN";
    }
}

TEST_F(CJsonMenuTest, FavouriteChangesAreStoredAtOnceCompactly) {
    m_menu.FavAppend("BRI");
    m_menu.FavAppend("Sch\xC3\xA4rfe");
    m_menu.FavAppend("BRI");
    EXPECT_EQ(StoredFavorites(), "[\"BRI\",\"Sch\xC3\xA4rfe\",\"BRI\"]");
    CJsonMenu fresh;
    fresh.FavLoad();
    EXPECT_EQ(fresh.GetFavMenuListing(), m_menu.GetFavMenuListing());

    m_menu.FavDelete("BRI");
    EXPECT_EQ(StoredFavorites(), "[\"Sch\xC3\xA4rfe\"]");
    m_menu.FavSet(J(R"(["CON", "NET+PORT"])"));
    EXPECT_EQ(StoredFavorites(), R"(["CON","NET+PORT"])");
    m_menu.FavClear();
    EXPECT_EQ(StoredFavorites(), "[]");
    EXPECT_EQ(m_menu.GetFavMenuListing(), Json::Value(Json::arrayValue));
    EXPECT_FALSE(fs::exists(m_root.Path(CJsonMenu::kFavoritesTempPath)));

    // FavSet refuses anything but a list of strings.
    m_menu.FavSet(J(R"(["BRI"])"));
    EXPECT_EQ(ThrownMessage([&] { m_menu.FavSet(J(R"({"0": "CON"})")); }), "Unsupported favorite type: non-array");
    EXPECT_EQ(ThrownMessage([&] { m_menu.FavSet(Json::Value("CON")); }), "Unsupported favorite type: non-array");
    EXPECT_EQ(ThrownMessage([&] { m_menu.FavSet(J(R"(["CON", 5])")); }),
              "Unsupported favorite type: non-string at index 1");
    EXPECT_EQ(m_menu.GetFavMenuListing(), J(R"(["BRI"])"));
    EXPECT_EQ(StoredFavorites(), R"(["BRI"])");
}

TEST_F(CJsonMenuTest, FailedSavesAndLoadsOfFavouritesThrowAndKeepTheStoredFileAndTheList) {
    const std::string message = "Unable to save favorites menu file " + FavFile();
    m_root.WriteFile("/var/data", "a file where the directory belongs");
    EXPECT_EQ(ThrownMessage([&] { m_menu.FavAppend("BRI"); }), message);
    EXPECT_EQ(m_menu.GetFavMenuListing(), Json::Value(Json::arrayValue));

    fs::remove(m_root.Path("/var/data"));
    m_menu.FavAppend("BRI");
    m_root.MakeDir(CJsonMenu::kFavoritesTempPath);
    EXPECT_EQ(ThrownMessage([&] { m_menu.FavAppend("CON"); }), message);
    EXPECT_EQ(ThrownMessage([&] { m_menu.FavClear(); }), message);
    EXPECT_EQ(ThrownMessage([&] { m_menu.FavSet(J(R"(["X"])")); }), message);
    EXPECT_EQ(m_menu.GetFavMenuListing(), J(R"(["BRI"])"));
    EXPECT_EQ(StoredFavorites(), R"(["BRI"])");

    // An unreadable file throws on load and keeps the list.
    const std::string readMessage = "Unable to read favorites menu file " + FavFile();
    const std::string cases[] = {"", "[\"CON\"", "{\"a\": \"CON\"}", "\"CON\"", "[\"CON\", 5]", "[] []",
                                 std::string(100000, '[')};
    for (const std::string& contents : cases) {
        m_root.WriteFile(CJsonMenu::kFavoritesPath, contents);
        EXPECT_EQ(ThrownMessage([&] { m_menu.FavLoad(); }), readMessage) << contents.substr(0, 20);
        EXPECT_EQ(m_menu.GetFavMenuListing(), J(R"(["BRI"])"));
    }
    fs::remove(FavFile());
    m_menu.FavLoad();  // no file: no favourites
    EXPECT_EQ(m_menu.GetFavMenuListing(), Json::Value(Json::arrayValue));
}

}  // namespace
