#pragma once
// SameText: whether two short texts are equal, compared a character at a time in place.
//
// Why: std::string's and std::string_view's == (and memcmp of more than a few bytes) call
// memcmp, which on 32-bit ARM costs more than comparing a code, a member name or a short
// prefix itself; the hot paths of the request handlers compare such texts for every
// request. Inline, so that against a literal the compiler knows the length.
//
// Pure; any thread.

#include <cstddef>
#include <string_view>

inline bool SameText(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    return true;
}
