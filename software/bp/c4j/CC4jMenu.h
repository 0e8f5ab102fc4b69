#pragma once
// CC4jMenu: the "menu" module (version 1): the on-screen menu tree of CJsonMenu, filled
// in with the live attributes, properties and values of the controls its entries name,
// and the user's favourites.
//
//   menu:get / getMenu     params "MMM+<menu id>" (array [code] or {"code"}, any case;
//                          "MMM" alone is "MAIN", "FAVR" the favourites), "addListener"
//                          (default false) also registers the client for every control
//                          shown. Result: the menu control's attributes and properties
//                          when a control "MMM+<id>" exists, and "items": one entry per
//                          menu item:
//                            a control   its attributes, properties, value and "code"
//                                        (no value, and no listening, for a protected
//                                        control the client is not admitted to)
//                            a sub-menu  {"type": 600, "code", "label" (the sub-menu's
//                                        "label" member or the code), "icon": "menu/" +
//                                        its "icon" member, when it has one}
//                            other text  {"type": 302, "label": the text}
//                          Lists are compact unless params is an object.
//   menu:addFavorite       params {"code"}: appended
//   menu:deleteFavorite    params {"code"}: every equal entry removed
//   menu:setFavorites      params {"favorites": [...]} or the array itself: the whole list
//   menu:clearFavorites    empties the list
// The four favourites changes need kChangeLevel (117 below it: "session:connect" first).
// Errors: 3 "Expected MMM+ABCD request", 5 "Can't find client identifier", 101 "Menu ID
// not found", 113 "Bad menu file - items[] not found" / "Empty menu entry - items[]
// missing/invalid", 3 for a favourites change the menu model refuses (with its message).
//
// Lifetime: the menu model outlives the handler. Thread contract: the server's thread.

#include "CC4jBaseControlHandler.h"
#include "CJsonMenu.h"

class CC4jMenu : public CC4jBaseControlHandler {
public:
    static constexpr EAccessLevel kChangeLevel = ACCESS_OPERATOR;
    CC4jMenu(CJsonRpcServer& server, CJsonMenu& menu);

    bool Get(const Json::Value& request, Json::Value& response);
    bool AddFavorite(const Json::Value& request, Json::Value& response);
    bool DeleteFavorite(const Json::Value& request, Json::Value& response);
    bool SetFavorites(const Json::Value& request, Json::Value& response);
    bool ClearFavorites(const Json::Value& request, Json::Value& response);

private:
    bool BuildItem(const Json::Value& request, const Json::Value& item, bool compact, bool listen,
                   Json::Value& entry, Json::Value& response);
    // Runs a favourites change and answers {} or the model's refusal.
    template <class Change>
    bool ChangeFavorites(const Json::Value& request, Json::Value& response, Change change);

    CJsonMenu& m_menu;
};
