// The crypto module: ICryptoModule over OpenSSL's libcrypto.

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <climits>

#include "ICryptoModule.h"

namespace {

class CCryptoModule : public ICryptoModule {
public:
    bool Pbkdf2Sha256(const char* password, size_t passwordLength, const uint8_t* salt, size_t saltLength,
                      uint32_t iterations, uint8_t* key, size_t keyLength) const override {
        if (passwordLength > INT_MAX || saltLength > INT_MAX || iterations > INT_MAX || keyLength > INT_MAX) {
            return false;
        }
        return PKCS5_PBKDF2_HMAC(password, static_cast<int>(passwordLength), salt, static_cast<int>(saltLength),
                                 static_cast<int>(iterations), EVP_sha256(), static_cast<int>(keyLength), key) == 1;
    }

    bool RandomBytes(uint8_t* out, size_t length) const override {
        return length <= INT_MAX && RAND_bytes(out, static_cast<int>(length)) == 1;
    }

    bool Md5(const void* data, size_t length, uint8_t* out) const override {
        unsigned int written = 0;
        return EVP_Digest(data, length, out, &written, EVP_md5(), nullptr) == 1 && written == 16;
    }

    bool EqualInConstantTime(const void* a, const void* b, size_t length) const override {
        return CRYPTO_memcmp(a, b, length) == 0;
    }

    void Cleanse(void* data, size_t length) const override { OPENSSL_cleanse(data, length); }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const ICryptoModule* ProjectorCryptoModule() {
    static const CCryptoModule module;
    return &module;
}
