#pragma once
// CJsonMenu: the on-screen menu tree served to JSON-RPC clients, and the user's list of
// favourite menu entries.
//
// The menu tree is read from "/etc/<name>" under the runtime root (default
// "/etc/menu.json"). Its root is an object whose members are menu IDs (four upper case
// letters: "MAIN", "PICT", ...); each menu is an object with an "items" array of strings:
// control codes ("BRI", "NET+PORT"), sub-menu references ("MMM+PICT") and plain text
// labels. Any other members of a menu ("label", "icon", ...) reach clients unchanged.
// The repository ships the tree as config/menu.json; the host copies it to
// "<root>/etc/menu.json" when it installs the system (`cmake --install` with the root as
// prefix does the same).
//
// The favourites are an array of strings kept in "/var/data/favmenu.json" under the
// runtime root, written compactly on one line. Every change is saved at once and
// atomically: the list goes to a temporary file in the same directory
// (".favmenu.json.tmp"), is flushed to the disk, renamed over the old file, and the
// directory is flushed; "/var/data" is created when missing. A power cut leaves either
// the old file or the new one whole.
//
// Errors: every method that fails throws CException and changes nothing, neither in
// memory nor on the disk. Only arrays of strings are accepted as favourites, whether
// from FavSet or from the file, so the list clients read back always has one shape.
//
// Thread contract: the controller's event thread only; no locks.

#include <json/json.h>

#include <string>

class CJsonMenu {
public:
    static constexpr const char* kDefaultMenuName = "menu.json";
    static constexpr const char* kMenuDirectory = "/etc/";
    static constexpr const char* kFavoritesDirectory = "/var/data";
    static constexpr const char* kFavoritesPath = "/var/data/favmenu.json";
    static constexpr const char* kFavoritesTempPath = "/var/data/.favmenu.json.tmp";
    // Larger files are refused as unreadable, so a stray file cannot exhaust memory.
    static constexpr size_t kMaxFileSize = 4 * 1024 * 1024;

    // Starts with no menu and no favourites.
    CJsonMenu();

    // Empties the menu, loads the menu file `name` (kDefaultMenuName when null or empty),
    // then the favourites. Throws what LoadMenuFile or FavLoad throw; the menu stays
    // empty when its file fails, and the favourites are then not loaded.
    void Initialize(const char* name = nullptr);

    // Replaces the menu by the file "/etc/<name>" (a name from the host's configuration,
    // not from a client). The file is JSON; comments are allowed, trailing text and
    // repeated menu IDs are not. Throws CException, keeping the previous menu:
    //   "Unable to find menu configuration - path not specified."  name is empty
    //   "Unable to find menu configuration <path>"                 no such file
    //   "Unable to read menu configuration <path>"                 unreadable, not JSON, too
    //                                                              large, or not an object
    void LoadMenuFile(const std::string& name);

    // Hook for turning resource IDs in menu labels into texts before clients see them.
    // The shipped tree holds its texts directly, so today it does nothing.
    void ConvertResIds();

    // Copies the menu `menuId` into `out` and returns true; returns false and leaves
    // `out` as it was when there is no such menu (a member that is not an object is not
    // a menu).
    bool GetMenuListing(const std::string& menuId, Json::Value& out) const;

    // Removes every string equal to `item` from the "items" of menu `menuId` (an entry
    // the system does not offer on this model). Nothing happens when the menu, its
    // "items" array or the entry is missing. The menu file is not touched.
    void RemoveMenuItem(const std::string& menuId, const std::string& item);

    // Reads the favourites file: a missing file means no favourites. Throws
    // "Unable to read favorites menu file <path>" when it cannot be read, is not JSON,
    // or is not an array of strings, keeping the current list.
    void FavLoad();

    // Replaces the whole list and saves it. Throws "Unsupported favorite type: non-array"
    // for a value that is not an array, and "Unsupported favorite type: non-string at
    // index <i>" for an element that is not a string.
    void FavSet(const Json::Value& favorites);
    // Adds `name` at the end and saves (a name already present is added again).
    void FavAppend(const std::string& name);
    // Removes every entry equal to `name` and saves.
    void FavDelete(const std::string& name);
    // Empties the list and saves.
    void FavClear();
    // A copy of the list (always an array).
    Json::Value GetFavMenuListing() const;

    // The save step of the Fav* changes throws "Unable to save favorites menu file <path>"
    // (with the errno of the failing step) and leaves the file and the list as they were.

private:
    // Writes `favorites` to the favourites file atomically; m_favorites is only replaced
    // by the caller once this has returned.
    static void SaveFavorites(const Json::Value& favorites);
    void ReplaceFavorites(Json::Value favorites);

    Json::Value m_menu;
    Json::Value m_favorites;
};
