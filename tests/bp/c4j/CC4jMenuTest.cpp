// The "menu" module over real TCP with the shipped menu tree: menus filled in with the
// live controls, sub-menus and texts, the favourites and their file, and listening to
// the controls a menu shows.

#include "C4jFixture.h"

namespace {

class CC4jMenuTest : public CC4jFixture {
protected:
    void SetUp() override {
        root.WriteFile("/etc/menu.json", CTempRoot::ReadFile(PROJ_MENU_FILE));
        menu.Initialize();
        client = Connect();
        server.SetClientAccessLevel(client->id, ACCESS_OPERATOR);  // favourites need a login
    }

    Json::Value Items(const std::string& params) { return Result(*client, "menu:get", params)["items"]; }

    TClient client;
};

}  // namespace

TEST_F(CC4jMenuTest, MenuIsTheSameForArrayAndObjectParamsInAnyCase) {
    const Json::Value main = Items(R"(["MMM+MAIN"])");
    ASSERT_EQ(main.size(), 5u);
    EXPECT_EQ(main[0], J(R"({"type":600,"code":"MMM+PICT","label":"Picture","icon":"menu/picture"})"));
    EXPECT_EQ(Items(R"({"code":"mmm+main"})"), main);
    EXPECT_EQ(Items(R"(["MMM"])"), main);
    EXPECT_EQ(Result(*client, "getMenu", R"(["MMM+MAIN"])")["items"], main);
}

TEST_F(CC4jMenuTest, CodesThatNameNoMenuAreRefused) {
    const Json::Value notMenu = Call(*client, "menu:get", R"(["SUMM"])");
    EXPECT_EQ(notMenu["error"], J(R"({"code":3,"message":"Expected MMM+ABCD request"})"));
    const Json::Value unknown = Call(*client, "menu:get", R"({"code":"MMM+ZZZZ"})");
    EXPECT_EQ(unknown["error"], J(R"({"code":101,"message":"Menu ID not found"})"));
}

TEST_F(CC4jMenuTest, EntriesDescribeControlsTextsAndSubMenus) {
    const Json::Value picture = Items(R"(["MMM+PICT"])");
    ASSERT_EQ(picture.size(), 10u);
    EXPECT_EQ(picture[0], J(R"({"type":302,"label":"Image"})"));
    EXPECT_EQ(picture[1], J(R"({"type":200,"access":2,"label":"Auto Detect","default":50,"enabled":true,
                                "min":0,"max":100,"value":50,"code":"BRI"})"));
    EXPECT_EQ(picture[2], J(R"({"type":203,"access":2,"label":"","default":40,"decimals":1,"enabled":true,
                                "min":0,"max":100,"softmin":10,"softmax":90,"value":40,"code":"CON"})"));
    EXPECT_EQ(picture[3], J(R"({"type":302,"label":"COL"})"));  // a code without a control is shown as text
    EXPECT_EQ(picture[8], J(R"({"type":600,"code":"MMM+COLR","label":"Color Temperature","icon":"menu/palette"})"));

    Control("BRI").SetValue(80);
    EXPECT_EQ(Items(R"(["MMM+PICT"])")[1]["value"], 80);
    EXPECT_EQ(Items(R"(["MMM+INPT"])")[0]["list"], J(R"([[1,"HDMI","input/hdmi"],[2,"DVI"]])"));
    EXPECT_EQ(Items(R"({"code":"MMM+INPT"})")[0]["list"],
              J(R"([{"idx":1,"text":"HDMI","icon":"input/hdmi"},{"idx":2,"text":"DVI","selectable":false}])"));
}

TEST_F(CC4jMenuTest, FavouritesKeepTheirOrderAndOutliveTheModel) {
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_USER));
    for (const char* method : {"menu:addFavorite", "menu:deleteFavorite", "menu:setFavorites", "menu:clearFavorites"}) {
        EXPECT_EQ(ErrorCode(*client, method, R"({"code":"BRI"})"), ERR_INVALID_ACCESS_GROUP) << method;
    }
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_OPERATOR));
    for (const char* code : {"NAM", "MMM+LAMP", "BRI", "NAM"}) {
        Result(*client, "menu:addFavorite", std::string(R"({"code":")") + code + "\"}");
    }
    Result(*client, "menu:deleteFavorite", R"({"code":"NAM"})");
    Result(*client, "menu:addFavorite", R"({"code":"LMP"})");
    const Json::Value favourites = Items(R"(["MMM+FAVR"])");
    ASSERT_EQ(favourites.size(), 3u);
    EXPECT_EQ(favourites[0]["label"], "Lamp");
    EXPECT_EQ(favourites[1]["code"], "BRI");
    EXPECT_EQ(favourites[2]["code"], "LMP");
    EXPECT_EQ(CTempRoot::ReadFile(root.Path(CJsonMenu::kFavoritesPath)), R"(["MMM+LAMP","BRI","LMP"])");

    Result(*client, "menu:clearFavorites");
    EXPECT_EQ(Items(R"(["MMM+FAVR"])"), J("[]"));
}

TEST_F(CC4jMenuTest, SetFavoritesTakesOnlyAListOfCodes) {
    Result(*client, "menu:setFavorites", R"({"favorites":["INP","RST"]})");
    EXPECT_EQ(menu.GetFavMenuListing(), J(R"(["INP","RST"])"));

    EXPECT_EQ(ErrorCode(*client, "menu:setFavorites", R"({"favorites":{"code":"BRI"}})"), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ErrorCode(*client, "menu:setFavorites", R"({"code":"BRI"})"), ERR_INVALID_PARAMETER);
    EXPECT_EQ(ErrorCode(*client, "menu:setFavorites", R"(["BRI",5])"), ERR_INVALID_PARAMETER);
    EXPECT_EQ(menu.GetFavMenuListing(), J(R"(["INP","RST"])"));
    EXPECT_EQ(CTempRoot::ReadFile(root.Path(CJsonMenu::kFavoritesPath)), R"(["INP","RST"])");

    Result(*client, "menu:setFavorites", R"(["LMP"])");
    EXPECT_EQ(menu.GetFavMenuListing(), J(R"(["LMP"])"));
}

TEST_F(CC4jMenuTest, AddListenerRegistersTheClientForTheControlsShown) {
    Items(R"({"code":"MMM+SYST","addListener":true})");
    EXPECT_EQ(Registry().GetKeys(), (std::vector<std::string>{"NAM", "RST"}));
    EXPECT_TRUE(Quiet(*client));  // registering sends nothing by itself
    Control("NAM").SetText("Hall");
    EXPECT_EQ(Next(*client), J(R"({"jsonrpc":"2.0","method":"control:notify","params":{"code":"NAM","value":"Hall"}})"));

    Items(R"(["MMM+LAMP"])");  // without "addListener" nothing more is registered
    EXPECT_EQ(Registry().GetKeys(), (std::vector<std::string>{"NAM", "RST"}));
}
