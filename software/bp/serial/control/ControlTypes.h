#pragma once
// The small types shared by controls, the dispatcher and the front-ends. Their numbers
// travel on the wire (IPC arguments, ASCII replies, JSON results) and never change.

#include <cstddef>
#include <string>

// A control's display type; its hundreds select the kind. Any number inside a kind's
// hundred is a valid display type of that kind; the names are the ones given meaning.
enum EDisplayType : int {
    DT_BOOLEAN = 100,
    DT_INTEGER = 200,
    DT_INTEGER_SOFT_LIMITS = 203,  // integer with soft minimum and maximum
    DT_TEXT = 300,                 // 300, 301, 303: length-limited text
    DT_TEXT_301 = 301,
    DT_TEXT_303 = 303,
    DT_TEXT_FREE = 304,            // 304, 305: free text
    DT_TEXT_FREE_305 = 305,
    DT_IPV4_ADDRESS = 306,
    DT_LIST = 400,
    DT_ACTION = 500,
    DT_MENU = 600,
    DT_CUSTOM = 700,
};

// The longest text any text control holds, in bytes: what its stored file may hold, so
// that every text a control accepts loads back after a restart.
constexpr size_t kMaxControlTextLength = 64 * 1024;

// Bits of the mode passed with every change.
enum EChangeMode : int {
    CHANGE_NORMAL = 0,
    CHANGE_UPDATE_HARDWARE = 4,  // apply to the hardware again
    CHANGE_STORE_ONLY = 8,       // the value came from the application: store and announce only
};

// Who may change a control: a sender may touch a control whose access group is not above
// its own level. Level 6 is a separate, protected group (the JSON API admits levels 2 and
// 6 to it), not "more" than 5.
enum EAccessLevel : int {
    ACCESS_NONE = 0,
    ACCESS_USER = 1,       // any sender that says nothing about itself
    ACCESS_OPERATOR = 2,   // the default group of a control
    ACCESS_SERVICE = 3,
    ACCESS_ADVANCED_SERVICE = 4,
    ACCESS_FACTORY = 5,
    ACCESS_PROTECTED = 6,
};

// Bits of a change notification; the arguments each one adds are given in
// CIpcEventDispatcher.h.
enum ENotifyType : int {
    NOTIFY_VALUE = 1,
    NOTIFY_ENABLED = 2,
    NOTIFY_RANGE = 4,
    NOTIFY_LIST = 8,
};

// The kind of a display type.
inline bool IsBooleanType(int type) { return type >= 100 && type < 200; }
inline bool IsIntegerType(int type) { return type >= 200 && type < 300; }
inline bool IsTextType(int type) { return type >= 300 && type < 400; }
inline bool IsListType(int type) { return type >= 400 && type < 500; }
inline bool IsActionType(int type) { return type >= 500 && type < 600; }
inline bool IsMenuType(int type) { return type >= 600 && type < 700; }
inline bool IsCustomType(int type) { return type >= 700 && type < 800; }

// One entry of a list control.
struct SListEntry {
    int value = 0;
    int textId = 0;        // resource text of the entry; 0 = use `text`
    int userData = 0;      // the application's own number for the entry, never interpreted here
    bool shown = true;     // hidden entries are not offered to clients
    bool selectable = true;
    std::string text;
    std::string iconPath;
};

// A control's code as the pair that travels in IPC: "NET" and "PORT" for NET+PORT.
struct SControlSet {
    std::string code;
    std::string subcode;
};
