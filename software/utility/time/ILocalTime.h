#pragma once
// ILocalTime: wall-clock time and the local time zone: the seam through which code that
// acts at times of day (macros) learns "now" and converts between moments and local
// calendar time, so tests set both. Moments are int64_t seconds since the epoch.
//
// CSystemLocalTime: the system clock and the process's time zone (the TZ environment
// variable, read by the C library). FromLocal goes through mktime with tm_isdst = -1: the
// zone decides whether summer time applies, a local time skipped by the change to summer
// time is moved forward by the gap (02:30 becomes 03:30), and of a local time that occurs
// twice (the change back) the C library picks one.
//
// Thread contract: the functions may be called from any thread; changing TZ is the
// host's business, before threads start.

#include <cstdint>
#include <ctime>

class ILocalTime {
public:
    virtual ~ILocalTime() = default;
    virtual int64_t Now() const = 0;
    // False when the moment cannot be converted.
    virtual bool ToLocal(int64_t seconds, struct tm& local) const = 0;
    // -1 when the calendar time cannot be converted.
    virtual int64_t FromLocal(struct tm local) const = 0;
};

class CSystemLocalTime : public ILocalTime {
public:
    int64_t Now() const override { return static_cast<int64_t>(time(nullptr)); }
    bool ToLocal(int64_t seconds, struct tm& local) const override {
        const time_t moment = static_cast<time_t>(seconds);
        return static_cast<int64_t>(moment) == seconds && localtime_r(&moment, &local) != nullptr;
    }
    int64_t FromLocal(struct tm local) const override {
        local.tm_isdst = -1;
        const time_t moment = mktime(&local);
        return static_cast<int64_t>(moment);
    }
};
