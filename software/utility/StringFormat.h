#pragma once
// NStringFormat: printf-style formatting into std::string, for messages whose length
// is not known in advance.

#include <cstdarg>
#include <string>

namespace NStringFormat {

std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// Formats with a caller's va_list; the list is copied, so the caller's stays usable.
std::string FormatV(const char* fmt, va_list args) __attribute__((format(printf, 1, 0)));

}  // namespace NStringFormat
