#pragma once
// The records of the status database (CStatusDb): one status item, one group of items,
// the static description a group is built from, and one line of the alarm summary.
// Plain values: copying one copies everything it holds.

#include <map>
#include <string>

// Bits of a status item's flags word.
constexpr short kStatusSeverityMask = 0x0003;  // alarm severity 1..3; 0 = no alarm
constexpr short kStatusStickyFlag = 0x0100;    // set only by the item's description, kept by every update

inline int StatusSeverity(short flags) { return flags & kStatusSeverityMask; }

// One status item.
struct SStatus {
    short flags = 0;
    int labelId = 0;          // resource text of the label (NText); 0 = no label
    int number = 0;
    std::string value;        // the value as text
    std::string text;         // additional text (a detail for service staff)
    std::string group;        // name of the item's group
    short index = 0;          // the item's key within its group
    // Resource text used as the printf format of `number` when the value is shown
    // ("%d hours"); 0 = the value string is shown as it is.
    int valueTextId = 0;
    // Translations cached in the current language, so that readers and the dump never
    // look texts up; CStatusDb::SwitchLanguage refreshes them. Empty for id 0.
    std::string labelText;
    std::string valueFormat;
};

// A named group of status items.
struct SStatusGroup {
    std::string name;
    int labelId = 0;              // resource text shown for the group in the summary
    std::string labelText;        // its cached translation
    std::string icon;             // icon name handed to the status readers, never interpreted
    std::map<short, SStatus> items;  // keyed by index, so always in index order
    unsigned short alarmMask = 0;    // OR of the items' severities
};

// The static description of one item, from which CStatusDb::AddStatusGroup builds a group.
// An aggregate of plain fields so that a producer can keep its table as a constant array.
struct SStatusDesc {
    short index;
    int labelId;
    short flags;               // initial flags; may already carry a severity and the sticky bit
    const char* value;         // initial value string; null = ""
    int number;
    const char* text;          // initial additional text; null = ""
    int valueTextId;           // see SStatus::valueTextId
};

// One line of CStatusDb::GetSummary: the global alarm word or one group's alarm mask.
struct SStatusSummaryEntry {
    std::string code;          // "ALRM" for the global word, else the group's name
    unsigned short value = 0;  // the alarm summary or the group's alarm mask
    std::string label;         // translated label
    std::string icon;          // the group's icon name; empty for "ALRM"
};
