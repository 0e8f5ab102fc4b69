#include "CC4jMenu.h"

#include "CException.h"
#include "dispatch/CNotificationManager.h"
#include "text/NAsciiCodeUtils.h"

CC4jMenu::CC4jMenu(CJsonRpcServer& server, CJsonMenu& menu) : CC4jBaseControlHandler(server, "menu", 1), m_menu(menu) {
    Publish(*this, &CC4jMenu::Get, "menu:get");
    Publish(*this, &CC4jMenu::Get, "getMenu");
    Publish(*this, &CC4jMenu::AddFavorite, "menu:addFavorite");
    Publish(*this, &CC4jMenu::SetFavorites, "menu:setFavorites");
    Publish(*this, &CC4jMenu::DeleteFavorite, "menu:deleteFavorite");
    Publish(*this, &CC4jMenu::ClearFavorites, "menu:clearFavorites");
}

bool CC4jMenu::Get(const Json::Value& request, Json::Value& response) {
    const Json::Value& params = request["params"];
    const bool listen = NJsonValueParser::GetBoolFromObj(params, "addListener", false).second;
    const std::string client = GetClientIdString(request);
    const std::string requested = NJsonValueParser::GetCodeFromParams(params);
    GetLog().LogDebug("Recv'd 'menu:get' from %s: %s %s", client.c_str(), requested.c_str(), listen ? "(reg)" : "");

    std::string code;
    std::string menuId;
    NAsciiCodeUtils::SplitCode(requested, code, menuId);
    if (code != "MMM" || menuId == "!!!!" || menuId == "@@@@") {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, "Expected MMM+ABCD request");
        return true;
    }
    if (menuId.empty()) {
        menuId = "MAIN";
    }
    const bool compact = !params.isObject();
    Json::Value result(Json::objectValue);
    if (const CProjCon* own = GetDispatcher().GetControl("MMM+" + menuId)) {
        AddAttrToResult(*own, result);
        AddPropToResult(*own, result, compact);
    }

    Json::Value items;
    if (menuId == "FAVR") {
        items = m_menu.GetFavMenuListing();
    } else {
        Json::Value menu;
        if (!m_menu.GetMenuListing(menuId, menu)) {
            MakeErrorResponse(request, response, ERR_CONTROL_NOT_FOUND, "Menu ID not found");
            return true;
        }
        items = menu.isObject() ? menu["items"] : Json::Value();
        if (!items.isArray()) {
            MakeErrorResponse(request, response, ERR_BAD_FILE, "Bad menu file - items[] not found");
            return true;
        }
    }
    result["items"] = Json::Value(Json::arrayValue);
    for (const Json::Value& item : items) {
        Json::Value entry(Json::objectValue);
        if (!BuildItem(request, item, compact, listen, entry, response)) {
            return true;
        }
        result["items"].append(entry);
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = result;
    }
    GetLog().LogDebug("Completed 'menu:get' from %s", client.c_str());
    return true;
}

bool CC4jMenu::BuildItem(const Json::Value& request, const Json::Value& item, bool compact, bool listen,
                         Json::Value& entry, Json::Value& response) {
    if (!item.isString()) {
        MakeErrorResponse(request, response, ERR_BAD_FILE, "Empty menu entry - items[] missing/invalid");
        return false;
    }
    std::string code = item.asString();
    const std::string text = code;
    const bool validCode = NAsciiCodeUtils::ValidateCode(code);
    if (const CProjCon* control = validCode ? GetDispatcher().GetControl(code) : nullptr) {
        AddAttrToResult(*control, entry);
        AddPropToResult(*control, entry, compact);
        entry["code"] = code;
        if (!IsAdmitted(request, *control)) {
            return true;  // the entry is shown, its value is not, and nobody listens to it
        }
        AddValueToResult(*control, entry);
        if (listen) {
            const std::string address = GetClientDescriptor(request);
            if (address.empty()) {
                MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Can't find client identifier");
                return false;
            }
            GetDispatcher().GetNotificationManager().NotifyRegister(code, address);
        }
        return true;
    }
    const auto parts = NAsciiCodeUtils::SplitCode(code);
    Json::Value submenu;
    if (validCode && parts.first == "MMM" && m_menu.GetMenuListing(parts.second, submenu)) {
        entry["type"] = static_cast<int>(DT_MENU);
        entry["code"] = code;
        entry["label"] = submenu.isObject() && submenu["label"].isString() ? submenu["label"].asString() : code;
        if (submenu.isObject() && submenu["icon"].isString()) {
            entry["icon"] = "menu/" + submenu["icon"].asString();
        }
        return true;
    }
    entry["type"] = 302;
    entry["label"] = text;
    return true;
}

template <class Change>
bool CC4jMenu::ChangeFavorites(const Json::Value& request, Json::Value& response, Change change) {
    try {
        change();
    } catch (const CException& e) {
        MakeErrorResponse(request, response, ERR_INVALID_PARAMETER, e.GetMessage());
        return true;
    }
    InitResponseObj(request, response);
    if (!response.isNull()) {
        response["result"] = Json::Value(Json::objectValue);
    }
    return true;
}

bool CC4jMenu::AddFavorite(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    GetLog().LogDebug("Recv'd 'menu:addFavorite' from %s", GetClientIdString(request).c_str());
    const auto code = NJsonValueParser::GetStringFromObj(request["params"], "code", "");
    if (!code.first || code.second.empty()) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Missing favorite code");
        return true;
    }
    return ChangeFavorites(request, response, [&] { m_menu.FavAppend(code.second); });
}

bool CC4jMenu::DeleteFavorite(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const auto code = NJsonValueParser::GetStringFromObj(request["params"], "code", "");
    if (!code.first) {
        MakeErrorResponse(request, response, ERR_TOO_FEW_PARAMETERS, "Missing favorite code");
        return true;
    }
    return ChangeFavorites(request, response, [&] { m_menu.FavDelete(code.second); });
}

bool CC4jMenu::SetFavorites(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    const Json::Value& params = request["params"];
    const Json::Value favorites = params.isObject() && params.isMember("favorites") ? params["favorites"] : params;
    return ChangeFavorites(request, response, [&] { m_menu.FavSet(favorites); });
}

bool CC4jMenu::ClearFavorites(const Json::Value& request, Json::Value& response) {
    if (IsRefusedBelow(request, response, kChangeLevel)) {
        return true;
    }
    GetLog().LogDebug("Recv'd 'menu:clearFavorites' from %s", GetClientIdString(request).c_str());
    return ChangeFavorites(request, response, [&] { m_menu.FavClear(); });
}
