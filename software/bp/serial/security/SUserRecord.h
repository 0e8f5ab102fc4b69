#pragma once
// SUserRecord: one login account as CSecurityManager keeps and stores it. The password
// itself is never held: only a random salt and the PBKDF2-HMAC-SHA256 key derived from
// the password with that salt and iteration count.

#include <array>
#include <string>

#include "control/ControlTypes.h"

struct SUserRecord {
    static constexpr size_t kSaltSize = 16;
    static constexpr size_t kKeySize = 32;

    std::string name;
    EAccessLevel access = ACCESS_NONE;
    std::array<unsigned char, kSaltSize> salt{};
    std::array<unsigned char, kKeySize> hash{};  // the derived key
    unsigned int iterations = 0;
};
