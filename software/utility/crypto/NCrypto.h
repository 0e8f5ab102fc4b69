#pragma once
// NCrypto: password keys, random bytes and MD5 digests for the projector's processes,
// from the crypto module (ICryptoModule.h), which is loaded at the first call.
//
// Any thread. Each function throws CException "Unable to load the crypto module: ..."
// when the module cannot be loaded, and otherwise reports OpenSSL's refusal by its result.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace NCrypto {

// PBKDF2 with HMAC-SHA-256 of password and salt, `iterations` rounds, into key.
bool Pbkdf2Sha256(const std::string& password, const uint8_t* salt, size_t saltLength, uint32_t iterations,
                  uint8_t* key, size_t keyLength);
// length bytes from a cryptographically strong generator.
bool RandomBytes(uint8_t* out, size_t length);
// True when a and b hold the same length bytes, in a time that does not depend on them.
bool EqualInConstantTime(const uint8_t* a, const uint8_t* b, size_t length);
// Overwrites a secret with zeros in a way the compiler keeps.
void Cleanse(void* data, size_t length);
// length bytes in lower-case hexadecimal, two digits each; needs no module.
std::string ToHex(const uint8_t* bytes, size_t length);
// The MD5 digest of text, in lower-case hexadecimal (32 characters); empty when OpenSSL
// refuses, which matches no digest a peer sends.
std::string Md5Hex(const std::string& text);

}  // namespace NCrypto
