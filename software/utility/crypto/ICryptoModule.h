#pragma once
// ICryptoModule: the OpenSSL functions the projector's processes use outside TLS, as the
// crypto module ("libprojector_crypto.so", beside libprojector_utility) provides them.
// NCrypto loads the module the first time one is needed, so a process that never checks
// a password or a PJLink digest never maps libcrypto (about 1.5 MiB of resident memory).
//
// Threads: any; the module's object has no state of its own.

#include <cstddef>
#include <cstdint>

class ICryptoModule {
public:
    virtual ~ICryptoModule() = default;
    // PBKDF2 with HMAC-SHA-256; false when OpenSSL refuses the parameters.
    virtual bool Pbkdf2Sha256(const char* password, size_t passwordLength, const uint8_t* salt, size_t saltLength,
                              uint32_t iterations, uint8_t* key, size_t keyLength) const = 0;
    // Bytes from OpenSSL's random generator; false when it cannot give them.
    virtual bool RandomBytes(uint8_t* out, size_t length) const = 0;
    // The MD5 digest of data into out[16]; false when OpenSSL cannot make it.
    virtual bool Md5(const void* data, size_t length, uint8_t* out) const = 0;
    // True when the two ranges hold the same bytes, in a time that does not depend on them.
    virtual bool EqualInConstantTime(const void* a, const void* b, size_t length) const = 0;
    // Overwrites the range with zeros in a way the compiler keeps.
    virtual void Cleanse(void* data, size_t length) const = 0;
};

// The module's one entry point, looked up by this name: its object, which lives as long as
// the process.
extern "C" const ICryptoModule* ProjectorCryptoModule();
using TCryptoModuleEntry = const ICryptoModule* (*)();
constexpr const char* kCryptoModule = "libprojector_crypto.so";
constexpr const char* kCryptoModuleEntry = "ProjectorCryptoModule";
