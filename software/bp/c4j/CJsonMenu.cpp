#include "CJsonMenu.h"

#include <cerrno>
#include <filesystem>
#include <memory>
#include <utility>

#include "CException.h"
#include "NFileUtil.h"
#include "RuntimeRoot.h"

namespace {

// Parses one JSON value; comments are allowed, trailing text and repeated keys are not.
bool ParseJson(const std::string& text, Json::Value& out) {
    Json::CharReaderBuilder builder;
    builder["allowComments"] = true;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    try {
        return reader->parse(text.data(), text.data() + text.size(), &out, &errors);
    } catch (const std::exception&) {
        // jsoncpp throws instead of reporting when nesting exceeds its stack limit.
        return false;
    }
}

bool IsListOfStrings(const Json::Value& value) {
    if (!value.isArray()) {
        return false;
    }
    for (const Json::Value& element : value) {
        if (!element.isString()) {
            return false;
        }
    }
    return true;
}

}  // namespace

CJsonMenu::CJsonMenu() : m_menu(Json::objectValue), m_favorites(Json::arrayValue) {}

void CJsonMenu::Initialize(const char* name) {
    m_menu = Json::Value(Json::objectValue);
    LoadMenuFile(name && *name ? name : kDefaultMenuName);
    FavLoad();
}

void CJsonMenu::LoadMenuFile(const std::string& name) {
    if (name.empty()) {
        THROW_EXCEPTION("Unable to find menu configuration - path not specified.");
    }
    const std::string path = NRuntimeRoot::Path(kMenuDirectory + name);
    std::string text;
    std::string reason;
    const NFileUtil::EReadResult result = NFileUtil::ReadFile(path, kMaxFileSize, text, reason);
    if (result == NFileUtil::EReadResult::MISSING) {
        THROW_EXCEPTION("Unable to find menu configuration %s", path.c_str());
    }
    Json::Value menu;
    if (result != NFileUtil::EReadResult::READ || !ParseJson(text, menu) || !menu.isObject()) {
        THROW_EXCEPTION("Unable to read menu configuration %s", path.c_str());
    }
    m_menu.swap(menu);
}

void CJsonMenu::ConvertResIds() {}

bool CJsonMenu::GetMenuListing(const std::string& menuId, Json::Value& out) const {
    const Json::Value* menu = m_menu.find(menuId.data(), menuId.data() + menuId.size());
    if (!menu || !menu->isObject()) {
        return false;
    }
    out = *menu;
    return true;
}

void CJsonMenu::RemoveMenuItem(const std::string& menuId, const std::string& item) {
    const Json::Value* menu = m_menu.find(menuId.data(), menuId.data() + menuId.size());
    if (!menu || !menu->isObject()) {
        return;
    }
    static const std::string kItems = "items";
    const Json::Value* items = menu->find(kItems.data(), kItems.data() + kItems.size());
    if (!items || !items->isArray()) {
        return;
    }
    Json::Value kept(Json::arrayValue);
    for (const Json::Value& entry : *items) {
        if (!entry.isString() || entry.asString() != item) {
            kept.append(entry);
        }
    }
    if (kept.size() != items->size()) {
        // Both members exist, so operator[] only looks them up.
        m_menu[menuId][kItems].swap(kept);
    }
}

void CJsonMenu::FavLoad() {
    const std::string path = NRuntimeRoot::Path(kFavoritesPath);
    std::string text;
    std::string reason;
    const NFileUtil::EReadResult result = NFileUtil::ReadFile(path, kMaxFileSize, text, reason);
    if (result == NFileUtil::EReadResult::MISSING) {
        m_favorites = Json::Value(Json::arrayValue);
        return;
    }
    Json::Value favorites;
    if (result != NFileUtil::EReadResult::READ || !ParseJson(text, favorites) || !IsListOfStrings(favorites)) {
        THROW_EXCEPTION("Unable to read favorites menu file %s", path.c_str());
    }
    m_favorites.swap(favorites);
}

void CJsonMenu::FavSet(const Json::Value& favorites) {
    if (!favorites.isArray()) {
        THROW_EXCEPTION("Unsupported favorite type: non-array");
    }
    for (Json::ArrayIndex i = 0; i < favorites.size(); ++i) {
        if (!favorites[i].isString()) {
            THROW_EXCEPTION("Unsupported favorite type: non-string at index %u", i);
        }
    }
    ReplaceFavorites(favorites);
}

void CJsonMenu::FavAppend(const std::string& name) {
    Json::Value favorites = m_favorites;
    favorites.append(Json::Value(name));
    ReplaceFavorites(std::move(favorites));
}

void CJsonMenu::FavDelete(const std::string& name) {
    Json::Value kept(Json::arrayValue);
    for (const Json::Value& entry : m_favorites) {
        if (entry.asString() != name) {  // the list holds strings only
            kept.append(entry);
        }
    }
    ReplaceFavorites(std::move(kept));
}

void CJsonMenu::FavClear() {
    ReplaceFavorites(Json::Value(Json::arrayValue));
}

Json::Value CJsonMenu::GetFavMenuListing() const {
    return m_favorites;
}

void CJsonMenu::ReplaceFavorites(Json::Value favorites) {
    SaveFavorites(favorites);
    m_favorites.swap(favorites);
}

void CJsonMenu::SaveFavorites(const Json::Value& favorites) {
    const std::string path = NRuntimeRoot::Path(kFavoritesPath);
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    // Bytes are written as they are, so any text a client stored reads back identical.
    builder["emitUTF8"] = true;
    const std::string text = Json::writeString(builder, favorites);
    if (text.size() > kMaxFileSize) {
        // FavLoad would refuse the file at the next start, losing the whole list.
        THROW_EXCEPTION("Unable to save favorites menu file %s: the list is too large", path.c_str());
    }

    const std::string directory = NRuntimeRoot::Path(kFavoritesDirectory);
    std::error_code created;
    std::filesystem::create_directories(directory, created);
    if (created) {
        errno = created.value();
        THROW_ERRNO_EXCEPTION("Unable to save favorites menu file %s", path.c_str());
    }

    if (!NFileUtil::WriteFileAtomically(path, text, 0644)) {
        THROW_ERRNO_EXCEPTION("Unable to save favorites menu file %s", path.c_str());
    }
}
