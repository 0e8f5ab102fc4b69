#include "CC4jBaseControlHandler.h"

#include <algorithm>
#include <utility>

#include "CException.h"
#include "text/NText.h"

std::string CC4jBaseControlHandler::Text(int textId) {
    if (textId == 0) {
        return "";
    }
    try {
        return NText::GetString(textId);
    } catch (const CException&) {
        return "";
    }
}

bool CC4jBaseControlHandler::IsAdmitted(int clientId, const CProjCon& control) const {
    if (control.GetAccessGroup() != ACCESS_PROTECTED) {
        return true;
    }
    const EAccessLevel level = GetServer().GetRequestAccessLevel(clientId);
    return level == ACCESS_OPERATOR || level == ACCESS_PROTECTED;
}

EAccessLevel CC4jBaseControlHandler::GetChangeLevel(int clientId) const {
    return std::max(GetServer().GetRequestAccessLevel(clientId), CSecurityManager::kDefaultAccessGroup);
}

Json::Value CC4jBaseControlHandler::ValueOf(const CProjCon& control) {
    const int type = control.GetDisplayType();
    if (IsBooleanType(type)) {
        return control.GetValue() != 0;
    }
    if (IsTextType(type)) {
        return control.GetText();
    }
    if (IsActionType(type) || IsMenuType(type) || IsCustomType(type)) {
        return Json::Value();
    }
    return control.GetValue();
}

bool CC4jBaseControlHandler::AddValueToResult(const CProjCon& control, Json::Value& result) {
    Json::Value value = ValueOf(control);
    if (result.isObject()) {
        result["value"] = std::move(value);
    } else {
        result = std::move(value);
    }
    return true;
}

bool CC4jBaseControlHandler::AddEnabledToResult(const CProjCon& control, Json::Value& result) {
    if (!result.isObject() && !result.isNull()) {
        return false;
    }
    result["enabled"] = control.GetEnabled();
    return true;
}

bool CC4jBaseControlHandler::AddMinMaxToResult(const CProjCon& control, Json::Value& result) {
    if (!result.isObject() && !result.isNull()) {
        return false;
    }
    const int type = control.GetDisplayType();
    if (type >= 100 && type < 400) {
        result["min"] = control.GetMinValue();
        result["max"] = control.GetMaxValue();
        if (type == DT_INTEGER_SOFT_LIMITS) {
            result["softmin"] = control.GetSoftMinValue();
            result["softmax"] = control.GetSoftMaxValue();
        }
    }
    return true;
}

bool CC4jBaseControlHandler::AddListToResult(const CProjCon& control, Json::Value& result, bool compact) {
    if (!result.isObject() && !result.isNull()) {
        return false;
    }
    if (!IsListType(control.GetDisplayType())) {
        return true;
    }
    Json::Value list(Json::arrayValue);
    for (const SListEntry& entry : control.GetList()) {
        if (!entry.shown) {
            continue;
        }
        const std::string text = entry.textId != 0 ? Text(entry.textId) : entry.text;
        Json::Value item;
        if (compact) {
            item.append(entry.value);
            item.append(text);
            if (!entry.iconPath.empty()) {
                item.append(entry.iconPath);
            }
        } else {
            item["idx"] = entry.value;
            item["text"] = text;
            if (!entry.iconPath.empty()) {
                item["icon"] = entry.iconPath;
            }
            if (!entry.selectable) {
                item["selectable"] = false;  // offered, but a change to it is refused (105)
            }
        }
        list.append(item);
    }
    result["list"] = list;
    return true;
}

bool CC4jBaseControlHandler::AddPropToResult(const CProjCon& control, Json::Value& result, bool compact) {
    const bool enabled = AddEnabledToResult(control, result);
    const bool rest = IsListType(control.GetDisplayType()) ? AddListToResult(control, result, compact)
                                                           : AddMinMaxToResult(control, result);
    return enabled && rest;
}

bool CC4jBaseControlHandler::AddAttrToResult(const CProjCon& control, Json::Value& result) {
    if (!result.isObject() && !result.isNull()) {
        return false;
    }
    const int type = control.GetDisplayType();
    result["type"] = type;
    result["access"] = static_cast<int>(control.GetAccessGroup());
    result["label"] = Text(control.GetNameText());
    if (control.GetConfirmText() != 0) {
        result["confirm"] = Text(control.GetConfirmText());
    }
    if (control.GetContinueText() != 0) {
        result["continue"] = Text(control.GetContinueText());
    }
    if (control.GetWaitText() != 0) {
        result["wait"] = Text(control.GetWaitText());
    }
    if (IsTextType(type)) {
        result["default"] = control.GetDefaultText();
    } else if (IsActionType(type) || IsMenuType(type) || IsCustomType(type)) {
        result["default"] = Json::Value();
    } else if (IsBooleanType(type)) {
        result["default"] = control.GetDefaultValue() != 0;
    } else {
        result["default"] = control.GetDefaultValue();
        if (control.GetDecimals() != 0) {
            result["decimals"] = control.GetDecimals();
        }
    }
    if (!control.GetIconPath().empty()) {
        result["icon"] = control.GetIconPath();
    }
    if (control.IsReadOnly()) {
        result["readOnly"] = true;
    }
    return true;
}
