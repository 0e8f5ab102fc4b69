#include "NCrypto.h"

#include "CException.h"
#include "ICryptoModule.h"
#include "module/NModule.h"

namespace {

const ICryptoModule& Module() {
    // A function-local static: its initialisation runs once even with threads racing to it;
    // one that throws is tried again at the next call.
    static const ICryptoModule* const module = reinterpret_cast<TCryptoModuleEntry>(NModule::LoadEntry(
        reinterpret_cast<const void*>(&Module), kCryptoModule, kCryptoModuleEntry, "the crypto module"))();
    return *module;
}

}  // namespace

bool NCrypto::Pbkdf2Sha256(const std::string& password, const uint8_t* salt, size_t saltLength, uint32_t iterations,
                           uint8_t* key, size_t keyLength) {
    return Module().Pbkdf2Sha256(password.data(), password.size(), salt, saltLength, iterations, key, keyLength);
}

bool NCrypto::RandomBytes(uint8_t* out, size_t length) { return Module().RandomBytes(out, length); }

bool NCrypto::EqualInConstantTime(const uint8_t* a, const uint8_t* b, size_t length) {
    return Module().EqualInConstantTime(a, b, length);
}

void NCrypto::Cleanse(void* data, size_t length) { Module().Cleanse(data, length); }

std::string NCrypto::ToHex(const uint8_t* bytes, size_t length) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * length);
    for (size_t i = 0; i < length; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

std::string NCrypto::Md5Hex(const std::string& text) {
    std::array<uint8_t, 16> digest{};
    if (!Module().Md5(text.data(), text.size(), digest.data())) {
        return std::string();
    }
    return ToHex(digest.data(), digest.size());
}
