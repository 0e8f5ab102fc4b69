#pragma once
// CStatusDb: the projector's status items, in named groups of indexed items, with the
// sorted list of the items in alarm and one alarm summary word.
//
// Producers store values (UpdateStatusValue); readers (status requests, the ASCII
// protocol, the status file) read items, the alarm list and the summary. One listener
// may be attached; it hears whenever a group's alarm mask changes.
//
// Alarm list: a copy of every item whose severity (flags & 3) is not 0, kept sorted by
// AlarmSort so readers never sort. The copy follows every store to its item, so the list
// never shows a stale value, text or flags word.
//
// Group order: class-wide, every database records the order in which its groups were
// added, keyed by its prefix and the group name. The prefix thus names the database:
// databases alive at the same time must have different prefixes so that they never
// disturb each other's order; a group added again under a prefix (by a newer database
// after the old one is gone) takes a new, later order.
//
// Texts: labels and value formats are translated when a group is added and cached in the
// items; after a change of language SwitchLanguage fetches them again. Translations come
// from the text lookup given to the constructor (NText::GetString by default).
//
// Lifetime: the listener is not owned; it must outlive the database or be detached.
// References returned by GetStatusGroup and GetAlarmList stay valid as long as the
// database (groups are never removed and their storage is reserved up front); their
// contents change with every store.
// Thread contract: used on the controller's event thread only, like the class-wide group
// order; nothing locks.
// Errors: every failure throws CException and leaves the database unchanged.

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "status/IStatusListener.h"
#include "status/StatusTypes.h"

class CStatusDb {
public:
    // Translates a resource text id into the current language.
    using TextLookup = std::function<std::string(int id)>;

    // Name of the status file DumpStatusToFile writes into its directory.
    static constexpr const char* kDumpFileName = "statusDb.txt";

    // Reserves room for `capacity` groups. A null lookup means NText::GetString.
    CStatusDb(unsigned int capacity, const std::string& prefix, TextLookup lookup = nullptr);
    CStatusDb(const CStatusDb&) = delete;
    CStatusDb& operator=(const CStatusDb&) = delete;

    // Builds a group from `count` descriptions and records its order. Items whose initial
    // flags carry a severity enter the alarm list at once (and the listener hears of it).
    // Throws "Cannot create status group %s, statusDB is at its capacity (%d)",
    // "Status group already exists %s", "Invalid status group name", "Invalid status
    // descriptions for group %s" (negative count, or none given for a positive count),
    // "Duplicate status item %s:%d", or the text lookup's error for a bad text id.
    void AddStatusGroup(const SStatusDesc* descs, int count, const std::string& name, int labelId = 0,
                        const std::string& icon = "");

    bool HasGroup(const std::string& group) const { return FindGroup(group) != nullptr; }
    // Position of the group in the order of adding; throws "Status group does not exist %s".
    int FindGroupIndex(const std::string& group) const;
    // The group with its items (index order). Throws like FindGroupIndex.
    const SStatusGroup& GetStatusGroup(const std::string& group) const;
    // Copies of the group's items in index order. Throws like FindGroupIndex.
    std::vector<SStatus> GetOrderedStatusGroup(const std::string& group) const;

    // True when the group exists and has an item of that index.
    bool IsValidIndex(const std::string& group, short index) const;
    // A copy of the item. Throws "Cannot retrieve invalid status group %s:%d" or
    // "Cannot retrieve invalid status item %s:%d".
    SStatus GetStatusValue(const std::string& group, short index) const;

    // Store a new state of an item. The sticky bit 256 is taken from the old flags, never
    // from `flags`. With a value string the number becomes 0; with a number the value
    // string becomes its decimal text. Throws "Cannot update invalid status item %s:%d".
    void UpdateStatusValue(const std::string& group, short index, short flags, const std::string& value,
                           const std::string& text = "");
    void UpdateStatusValue(const std::string& group, short index, short flags, int number,
                           const std::string& text = "");
    // The common write path of both: false (nothing changed) when the item is missing.
    // A store that changes the item's severity updates the alarm list, the group's mask
    // and the summary, and tells the listener when the mask changed; any other store to
    // an item in alarm refreshes (and re-sorts) its copy in the alarm list.
    bool StoreStatusValue(const std::string& group, short index, short flags, const std::string& value, int number,
                          const std::string& text);

    // Removes the item (and its alarm). Throws "Cannot remove invalid status item %s:%d".
    void RemoveStatusItem(const std::string& group, short index);

    // Recomputes the summary as the OR of every group's alarm mask (0 with no groups).
    // Stores keep it current; callers need this only to be certain.
    void UpdateAlarmSummary();
    unsigned short GetAlarmSummary() const { return m_alarmSummary; }
    // First "ALRM" with the summary and translated text 25, then one entry per group in
    // the order of adding.
    std::vector<SStatusSummaryEntry> GetSummary() const;
    // The items in alarm, sorted by AlarmSort.
    const std::vector<SStatus>& GetAlarmList() const { return m_alarms; }
    size_t GetAlarmCount() const { return m_alarms.size(); }

    // True when `a` is listed before `b`: the smaller flags word (as a signed 16-bit
    // number) first; then, within a group, the smaller index; then the group added
    // earlier (a group never added counts as order 0 and is entered so).
    bool AlarmSort(const SStatus& a, const SStatus& b) const;

    // Writes directory + "/statusDb.txt" as an HDF file: the alarms in list order under
    // "ALRM.000", "ALRM.001", ..., each "%03d %45s %40s (%s:%03d)" with severity,
    // translated label, value text, group and index. The value text is the number shown
    // through the item's translated value format when it has one (a format holding
    // anything but a single %d or %i shows the plain number), else the value string.
    // The file is replaced whole (temporary file, fsync, rename), never left torn.
    // The directory is taken as given (the host resolves it through the runtime root).
    // Throws "Cannot write status file %s: ..." and leaves the old file.
    void DumpStatusToFile(const std::string& directory) const;

    // Fetches every cached translation again in the current language. All are fetched
    // before any is replaced, so a failing lookup changes nothing.
    void SwitchLanguage();

    // At most one listener; null detaches it.
    void AttachListener(IStatusListener* listener) { m_listener = listener; }

private:
    SStatusGroup* FindGroup(const std::string& group);
    const SStatusGroup* FindGroup(const std::string& group) const;
    std::string Translate(int id) const;
    int GroupOrder(const std::string& group) const;
    // Removes the item's copy (there is at most one) from the alarm list, if any.
    void EraseAlarm(const std::string& group, short index);
    // Removes the item's copy from the alarm list and, when it is in alarm, inserts a
    // fresh copy at its sorted place.
    void SyncAlarmEntry(const SStatus& item);
    // Recomputes a group's mask and the summary; tells the listener when the mask changed.
    void RefreshGroupMask(SStatusGroup& group);

    // (prefix, group name) -> order of adding, across all databases of the process.
    static std::map<std::pair<std::string, std::string>, int> s_groupOrder;
    static int s_lastOrder;

    const unsigned int m_capacity;
    const std::string m_prefix;
    const TextLookup m_lookup;
    std::vector<SStatusGroup> m_groups;
    std::vector<SStatus> m_alarms;
    unsigned short m_alarmSummary = 0;
    IStatusListener* m_listener = nullptr;
};
