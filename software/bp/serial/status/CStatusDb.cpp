#include "status/CStatusDb.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <util/neo_hdf.h>

#include "CException.h"
#include "NFileUtil.h"
#include "text/NText.h"

std::map<std::pair<std::string, std::string>, int> CStatusDb::s_groupOrder;
int CStatusDb::s_lastOrder = 0;

namespace {

// Every dumped line and value text is cut to this many bytes.
constexpr size_t kMaxDumpText = 255;

// Cuts `text` to kMaxDumpText bytes without leaving half a UTF-8 character at its end.
std::string Limit(std::string text) {
    if (text.size() <= kMaxDumpText) {
        return text;
    }
    size_t end = kMaxDumpText;
    // A continuation byte just past the cut means the cut splits a character: drop it whole.
    for (int back = 0; back < 3 && end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80; ++back) {
        --end;
    }
    text.resize(end);
    return text;
}

std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* fmt, ...) {
    char buffer[kMaxDumpText + 5];  // holds a few bytes past the cut, so Limit can see what it splits
    va_list args;
    va_start(args, fmt);
    const int length = vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    return length < 0 ? std::string() : Limit(buffer);
}

// True when `format` holds exactly one conversion and it is %d or %i (with flags, a
// width and a precision of at most three digits each), besides any number of "%%".
// A translator's text is no trusted format: anything else could read arguments that
// were never passed.
bool IsSingleIntFormat(const std::string& format) {
    const std::string flags = "-+ #0";
    int conversions = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            continue;
        }
        if (++i < format.size() && format[i] == '%') {
            continue;
        }
        while (i < format.size() && flags.find(format[i]) != std::string::npos) {
            ++i;
        }
        for (int digits = 0; i < format.size() && format[i] >= '0' && format[i] <= '9'; ++i) {
            if (++digits > 3) {
                return false;
            }
        }
        if (i < format.size() && format[i] == '.') {
            for (int digits = 0; ++i < format.size() && format[i] >= '0' && format[i] <= '9';) {
                if (++digits > 3) {
                    return false;
                }
            }
        }
        if (i >= format.size() || (format[i] != 'd' && format[i] != 'i')) {
            return false;
        }
        ++conversions;
    }
    return conversions == 1;
}

// The value as the dump shows it.
std::string ValueText(const SStatus& item) {
    if (item.valueTextId == 0) {
        return Format("%s", item.value.c_str());
    }
    if (!IsSingleIntFormat(item.valueFormat)) {
        return Format("%d", item.number);
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return Format(item.valueFormat.c_str(), item.number);  // checked above: one int conversion
#pragma GCC diagnostic pop
}

// The message of a ClearSilver error, which is freed here.
std::string TakeNeoError(NEOERR* error) {
    STRING text;
    string_init(&text);
    nerr_error_string(error, &text);
    std::string message = text.buf && text.buf[0] ? text.buf : "HDF error";
    string_clear(&text);
    nerr_ignore(&error);
    return message;
}

struct SHdfDestroy {
    void operator()(HDF* hdf) const { hdf_destroy(&hdf); }
};

// The HDF text of `entries` (name, value), in the order given.
std::string RenderHdf(const std::vector<std::pair<std::string, std::string>>& entries, const std::string& path) {
    HDF* raw = nullptr;
    NEOERR* error = hdf_init(&raw);
    if (error != STATUS_OK) {
        THROW_EXCEPTION("Cannot write status file %s: %s", path.c_str(), TakeNeoError(error).c_str());
    }
    const std::unique_ptr<HDF, SHdfDestroy> hdf(raw);
    for (const auto& entry : entries) {
        error = hdf_set_value(hdf.get(), entry.first.c_str(), entry.second.c_str());
        if (error != STATUS_OK) {
            THROW_EXCEPTION("Cannot write status file %s: %s", path.c_str(), TakeNeoError(error).c_str());
        }
    }
    char* text = nullptr;
    error = hdf_write_string(hdf.get(), &text);
    if (error != STATUS_OK) {
        THROW_EXCEPTION("Cannot write status file %s: %s", path.c_str(), TakeNeoError(error).c_str());
    }
    const std::unique_ptr<char, decltype(&free)> owned(text, &free);
    return text ? text : "";
}

}  // namespace

CStatusDb::CStatusDb(unsigned int capacity, const std::string& prefix, TextLookup lookup)
    : m_capacity(capacity),
      m_prefix(prefix),
      m_lookup(lookup ? std::move(lookup) : TextLookup([](int id) { return NText::GetString(id); })) {
    m_groups.reserve(capacity);
}

void CStatusDb::AddStatusGroup(const SStatusDesc* descs, int count, const std::string& name, int labelId,
                               const std::string& icon) {
    if (m_groups.size() >= m_capacity) {
        THROW_EXCEPTION("Cannot create status group %s, statusDB is at its capacity (%d)", name.c_str(),
                        static_cast<int>(m_capacity));
    }
    if (name.empty()) {
        THROW_EXCEPTION("Invalid status group name");
    }
    if (FindGroup(name)) {
        THROW_EXCEPTION("Status group already exists %s", name.c_str());
    }
    if (count < 0 || (count > 0 && !descs)) {
        THROW_EXCEPTION("Invalid status descriptions for group %s", name.c_str());
    }
    // The whole group is built aside, so a bad description or text id changes nothing.
    SStatusGroup group;
    group.name = name;
    group.labelId = labelId;
    group.labelText = Translate(labelId);
    group.icon = icon;
    for (int i = 0; i < count; ++i) {
        const SStatusDesc& desc = descs[i];
        SStatus item;
        item.flags = desc.flags;
        item.labelId = desc.labelId;
        item.number = desc.number;
        item.value = desc.value ? desc.value : "";
        item.text = desc.text ? desc.text : "";
        item.group = name;
        item.index = desc.index;
        item.valueTextId = desc.valueTextId;
        item.labelText = Translate(desc.labelId);
        item.valueFormat = Translate(desc.valueTextId);
        if (!group.items.emplace(desc.index, std::move(item)).second) {
            THROW_EXCEPTION("Duplicate status item %s:%d", name.c_str(), desc.index);
        }
        group.alarmMask = static_cast<unsigned short>(group.alarmMask | StatusSeverity(desc.flags));
    }
    m_groups.push_back(std::move(group));
    s_groupOrder[{m_prefix, name}] = ++s_lastOrder;  // before the alarms below are sorted in
    const SStatusGroup& added = m_groups.back();
    for (const auto& entry : added.items) {
        if (StatusSeverity(entry.second.flags) != 0) {
            SyncAlarmEntry(entry.second);
        }
    }
    UpdateAlarmSummary();
    if (added.alarmMask != 0 && m_listener) {
        m_listener->StatusAlarmsChanged();
    }
}

int CStatusDb::FindGroupIndex(const std::string& group) const {
    const SStatusGroup* found = FindGroup(group);
    if (!found) {
        THROW_EXCEPTION("Status group does not exist %s", group.c_str());
    }
    return static_cast<int>(found - m_groups.data());
}

const SStatusGroup& CStatusDb::GetStatusGroup(const std::string& group) const {
    return m_groups[static_cast<size_t>(FindGroupIndex(group))];
}

std::vector<SStatus> CStatusDb::GetOrderedStatusGroup(const std::string& group) const {
    std::vector<SStatus> items;
    for (const auto& entry : GetStatusGroup(group).items) {
        items.push_back(entry.second);
    }
    return items;
}

bool CStatusDb::IsValidIndex(const std::string& group, short index) const {
    const SStatusGroup* found = FindGroup(group);
    return found && found->items.count(index) != 0;
}

SStatus CStatusDb::GetStatusValue(const std::string& group, short index) const {
    const SStatusGroup* found = FindGroup(group);
    if (!found) {
        THROW_EXCEPTION("Cannot retrieve invalid status group %s:%d", group.c_str(), index);
    }
    const auto it = found->items.find(index);
    if (it == found->items.end()) {
        THROW_EXCEPTION("Cannot retrieve invalid status item %s:%d", group.c_str(), index);
    }
    return it->second;
}

void CStatusDb::UpdateStatusValue(const std::string& group, short index, short flags, const std::string& value,
                                  const std::string& text) {
    if (!StoreStatusValue(group, index, flags, value, 0, text)) {
        THROW_EXCEPTION("Cannot update invalid status item %s:%d", group.c_str(), index);
    }
}

void CStatusDb::UpdateStatusValue(const std::string& group, short index, short flags, int number,
                                  const std::string& text) {
    if (!StoreStatusValue(group, index, flags, std::to_string(number), number, text)) {
        THROW_EXCEPTION("Cannot update invalid status item %s:%d", group.c_str(), index);
    }
}

bool CStatusDb::StoreStatusValue(const std::string& group, short index, short flags, const std::string& value,
                                 int number, const std::string& text) {
    SStatusGroup* found = FindGroup(group);
    if (!found) {
        return false;
    }
    const auto it = found->items.find(index);
    if (it == found->items.end()) {
        return false;
    }
    SStatus& item = it->second;
    const short newFlags = static_cast<short>((flags & ~kStatusStickyFlag) | (item.flags & kStatusStickyFlag));
    if (item.value == value && item.number == number && item.text == text && item.flags == newFlags) {
        return true;
    }
    const short oldFlags = item.flags;
    const int oldSeverity = StatusSeverity(item.flags);
    item.value = value;
    item.number = number;
    item.text = text;
    item.flags = newFlags;
    const int newSeverity = StatusSeverity(newFlags);
    if (oldSeverity != 0 || newSeverity != 0) {
        SyncAlarmEntry(item);
        if (newSeverity != oldSeverity) {
            RefreshGroupMask(*found);
        }
    }
    if (m_listener) {
        const SStatus changed = item;  // the listener may store again and move the item
        m_listener->StatusItemChanged(changed, oldFlags);
    }
    return true;
}

void CStatusDb::RemoveStatusItem(const std::string& group, short index) {
    SStatusGroup* found = FindGroup(group);
    if (!found || found->items.count(index) == 0) {
        THROW_EXCEPTION("Cannot remove invalid status item %s:%d", group.c_str(), index);
    }
    EraseAlarm(group, index);
    found->items.erase(index);
    RefreshGroupMask(*found);
}

void CStatusDb::UpdateAlarmSummary() {
    unsigned short summary = 0;
    for (const SStatusGroup& group : m_groups) {
        summary = static_cast<unsigned short>(summary | group.alarmMask);
    }
    m_alarmSummary = summary;
}

std::vector<SStatusSummaryEntry> CStatusDb::GetSummary() const {
    std::vector<SStatusSummaryEntry> entries;
    entries.push_back({"ALRM", m_alarmSummary, Translate(25), ""});  // 25: "Alarms"
    for (const SStatusGroup& group : m_groups) {
        entries.push_back({group.name, group.alarmMask, group.labelText, group.icon});
    }
    return entries;
}

bool CStatusDb::AlarmSort(const SStatus& a, const SStatus& b) const {
    if (a.flags != b.flags) {
        return a.flags < b.flags;
    }
    if (a.group == b.group) {
        return a.index < b.index;
    }
    const int orderA = GroupOrder(a.group);
    const int orderB = GroupOrder(b.group);
    if (orderA != orderB) {
        return orderA < orderB;
    }
    return a.group < b.group;  // equal orders (groups never added) still need a strict order
}

void CStatusDb::DumpStatusToFile(const std::string& directory) const {
    const std::string path = directory + "/" + kDumpFileName;
    if (directory.empty()) {
        THROW_EXCEPTION("Cannot write status file %s: no directory given", path.c_str());
    }
    std::vector<std::pair<std::string, std::string>> entries;
    for (size_t i = 0; i < m_alarms.size(); ++i) {
        const SStatus& alarm = m_alarms[i];
        entries.emplace_back(Format("%s.%03d", "ALRM", static_cast<int>(i)),
                             Format("%03d %45s %40s (%s:%03d)", StatusSeverity(alarm.flags), alarm.labelText.c_str(),
                                    ValueText(alarm).c_str(), alarm.group.c_str(), alarm.index));
    }
    // Readable by the other processes, like any status page; replaced whole, never torn.
    if (!NFileUtil::WriteFileAtomically(path, RenderHdf(entries, path), 0644)) {
        THROW_EXCEPTION("Cannot write status file %s: %s", path.c_str(), strerror(errno));
    }
}

void CStatusDb::SwitchLanguage() {
    std::vector<std::string> texts;
    for (const SStatusGroup& group : m_groups) {
        texts.push_back(Translate(group.labelId));
        for (const auto& entry : group.items) {
            texts.push_back(Translate(entry.second.labelId));
            texts.push_back(Translate(entry.second.valueTextId));
        }
    }
    auto text = texts.begin();
    for (SStatusGroup& group : m_groups) {
        group.labelText = std::move(*text++);
        for (auto& entry : group.items) {
            entry.second.labelText = std::move(*text++);
            entry.second.valueFormat = std::move(*text++);
        }
    }
    for (SStatus& alarm : m_alarms) {
        const SStatus& item = FindGroup(alarm.group)->items.at(alarm.index);
        alarm.labelText = item.labelText;
        alarm.valueFormat = item.valueFormat;
    }
}

SStatusGroup* CStatusDb::FindGroup(const std::string& group) {
    const auto it = std::find_if(m_groups.begin(), m_groups.end(),
                                 [&](const SStatusGroup& candidate) { return candidate.name == group; });
    return it == m_groups.end() ? nullptr : &*it;
}

const SStatusGroup* CStatusDb::FindGroup(const std::string& group) const {
    return const_cast<CStatusDb*>(this)->FindGroup(group);
}

std::string CStatusDb::Translate(int id) const { return id == 0 ? std::string() : m_lookup(id); }

int CStatusDb::GroupOrder(const std::string& group) const {
    return s_groupOrder.emplace(std::make_pair(m_prefix, group), 0).first->second;
}

void CStatusDb::EraseAlarm(const std::string& group, short index) {
    const auto it = std::find_if(m_alarms.begin(), m_alarms.end(),
                                 [&](const SStatus& alarm) { return alarm.group == group && alarm.index == index; });
    if (it != m_alarms.end()) {
        m_alarms.erase(it);
    }
}

void CStatusDb::SyncAlarmEntry(const SStatus& item) {
    EraseAlarm(item.group, item.index);
    if (StatusSeverity(item.flags) != 0) {
        const auto place = std::upper_bound(m_alarms.begin(), m_alarms.end(), item,
                                            [this](const SStatus& a, const SStatus& b) { return AlarmSort(a, b); });
        m_alarms.insert(place, item);
    }
}

void CStatusDb::RefreshGroupMask(SStatusGroup& group) {
    unsigned short mask = 0;
    for (const auto& entry : group.items) {
        mask = static_cast<unsigned short>(mask | StatusSeverity(entry.second.flags));
    }
    const bool changed = mask != group.alarmMask;
    group.alarmMask = mask;
    UpdateAlarmSummary();
    if (changed && m_listener) {
        m_listener->StatusAlarmsChanged();
    }
}
