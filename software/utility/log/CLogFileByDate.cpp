#include "CLogFileByDate.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <mutex>
#include <vector>

#include "CException.h"

namespace {

struct SDate {
    int year = 0;
    int month = 0;
    int day = 0;
    bool operator==(const SDate& other) const {
        return year == other.year && month == other.month && day == other.day;
    }
};

// The state shared by every file sink of the process, guarded by Mutex().
std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
}
std::vector<CLogFileByDate*>& Sinks() {
    static std::vector<CLogFileByDate*> sinks;
    return sinks;
}
SDate& CurrentDate() {
    static SDate date;
    return date;
}

SDate LocalDate(time_t when) {
    tm local{};
    localtime_r(&when, &local);
    return SDate{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

// Whole days from a calendar date to another, free of time zones and daylight saving.
long DaysBetween(const SDate& from, const SDate& to) {
    auto toDays = [](const SDate& d) {
        tm t{};
        t.tm_year = d.year - 1900;
        t.tm_mon = d.month - 1;
        t.tm_mday = d.day;
        t.tm_hour = 12;
        return static_cast<long>(timegm(&t) / 86400);
    };
    return toDays(to) - toDays(from);
}

}  // namespace

CLogFileByDate::CLogFileByDate(const std::string& directory, const std::string& prefix, unsigned keepDays)
    : m_directory(directory), m_prefix(prefix), m_keepDays(keepDays), m_file(nullptr) {
    if (m_directory.empty() || m_directory.back() != '/') {
        m_directory += '/';
    }
    DIR* dir = opendir(m_directory.c_str());
    if (!dir) {
        THROW_ERRNO_EXCEPTION("%s: %s", "Cannot locate log-by-date directory", m_directory.c_str());
    }
    closedir(dir);

    std::lock_guard<std::mutex> lock(Mutex());
    if (CurrentDate().year == 0) {
        CurrentDate() = LocalDate(time(nullptr));
    }
    StartDayLocked();
    Sinks().push_back(this);
}

CLogFileByDate::~CLogFileByDate() {
    std::lock_guard<std::mutex> lock(Mutex());
    auto& sinks = Sinks();
    sinks.erase(std::remove(sinks.begin(), sinks.end(), this), sinks.end());
    if (m_file) {
        fclose(m_file);
    }
}

void CLogFileByDate::Write(const std::string& line, ELogLevel, EFyiCode) {
    std::lock_guard<std::mutex> lock(Mutex());
    UpdateLocked(time(nullptr));
    if (!m_file) {
        THROW_EXCEPTION("log file isn't available");
    }
    fwrite(line.data(), 1, line.size(), m_file);
    fputc('\n', m_file);
    fflush(m_file);
}

void CLogFileByDate::Update() { Update(time(nullptr)); }

void CLogFileByDate::Update(time_t now) {
    std::lock_guard<std::mutex> lock(Mutex());
    UpdateLocked(now);
}

void CLogFileByDate::UpdateLocked(time_t now) {
    const SDate today = LocalDate(now);
    if (today == CurrentDate()) {
        return;
    }
    CurrentDate() = today;
    // Every sink changes day even when one of them fails; the first failure is reported.
    std::exception_ptr firstError;
    for (CLogFileByDate* sink : Sinks()) {
        try {
            sink->StartDayLocked();
        } catch (...) {
            if (!firstError) {
                firstError = std::current_exception();
            }
        }
    }
    if (firstError) {
        std::rethrow_exception(firstError);
    }
}

void CLogFileByDate::StartDayLocked() {
    if (m_file) {
        fclose(m_file);
        m_file = nullptr;
    }
    const SDate today = CurrentDate();

    DIR* dir = opendir(m_directory.c_str());
    if (!dir) {
        THROW_ERRNO_EXCEPTION("%s: %s", "Cannot locate log-by-date directory", m_directory.c_str());
    }
    std::vector<std::string> expired;
    while (const dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        if (m_keepDays == 0 || strncmp(name, m_prefix.c_str(), m_prefix.size()) != 0) {
            continue;
        }
        SDate fileDate;
        if (sscanf(name + m_prefix.size(), "%d-%d-%d", &fileDate.year, &fileDate.month, &fileDate.day) != 3 ||
            fileDate.month < 1 || fileDate.month > 12 || fileDate.day < 1 || fileDate.day > 31) {
            continue;
        }
        if (DaysBetween(fileDate, today) >= static_cast<long>(m_keepDays)) {
            expired.push_back(m_directory + name);
        }
    }
    closedir(dir);
    for (const std::string& path : expired) {
        unlink(path.c_str());
    }

    char date[32];
    snprintf(date, sizeof date, "%02d-%02d-%02d", today.year, today.month, today.day);
    m_fileName = m_directory + m_prefix + date;
    m_file = fopen(m_fileName.c_str(), "a");
    if (!m_file) {
        THROW_ERRNO_EXCEPTION("Cannot open log file %s", m_fileName.c_str());
    }
}

long CLogFileByDate::GetSize() const {
    std::lock_guard<std::mutex> lock(Mutex());
    if (!m_file) {
        THROW_EXCEPTION("log file isn't available");
    }
    fflush(m_file);
    struct stat info {};
    if (fstat(fileno(m_file), &info) != 0) {
        THROW_ERRNO_EXCEPTION("log file isn't available");
    }
    return static_cast<long>(info.st_size);
}

std::string CLogFileByDate::GetFileName() const {
    std::lock_guard<std::mutex> lock(Mutex());
    return m_fileName;
}
