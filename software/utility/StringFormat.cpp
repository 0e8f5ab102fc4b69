#include "StringFormat.h"

#include <cstdio>

namespace NStringFormat {

std::string Format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::string text = FormatV(fmt, args);
    va_end(args);
    return text;
}

std::string FormatV(const char* fmt, va_list args) {
    char small[256];
    va_list copy;
    va_copy(copy, args);
    const int needed = vsnprintf(small, sizeof small, fmt, copy);
    va_end(copy);
    if (needed < 0) {
        return std::string();
    }
    if (static_cast<size_t>(needed) < sizeof small) {
        return std::string(small, static_cast<size_t>(needed));
    }
    std::string text(static_cast<size_t>(needed) + 1, '\0');
    va_copy(copy, args);
    vsnprintf(&text[0], text.size(), fmt, copy);
    va_end(copy);
    text.resize(static_cast<size_t>(needed));
    return text;
}

}  // namespace NStringFormat
