#include "NTlsCertificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "CException.h"
#include "NFileUtil.h"

namespace {

struct SFreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct SFreeCertificate {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct SFreeBio {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
using TKey = std::unique_ptr<EVP_PKEY, SFreeKey>;
using TCertificate = std::unique_ptr<X509, SFreeCertificate>;
using TBio = std::unique_ptr<BIO, SFreeBio>;

std::string BioText(BIO* bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return length > 0 ? std::string(data, static_cast<size_t>(length)) : std::string();
}

void AddExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    if (!extension || !X509_add_ext(certificate, extension, -1)) {
        X509_EXTENSION_free(extension);
        THROW_EXCEPTION("TLS: cannot add a certificate extension");
    }
    X509_EXTENSION_free(extension);
}

// A DNS name the certificate may carry: the projector's name when it is one, else "projector".
std::string DnsName(const std::string& name) {
    std::string dns;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                        c == '.';
        dns.push_back(ok ? c : '-');
    }
    return dns.empty() || dns.size() > 63 ? std::string("projector") : dns;
}

void Make(const std::string& certificatePath, const std::string& keyPath, const std::string& name) {
    TKey key(EVP_EC_gen("P-256"));
    TCertificate certificate(X509_new());
    if (!key || !certificate) {
        THROW_EXCEPTION("TLS: cannot make a key");
    }
    unsigned char serial[16];
    RAND_bytes(serial, sizeof serial);
    serial[0] &= 0x7f;  // a positive serial number
    BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
    const std::string dns = DnsName(name);
    const std::string altName = "DNS:" + dns;
    bool ok = number && X509_set_version(certificate.get(), 2) &&
              BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate.get())) &&
              X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -24 * 3600) &&
              X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 10L * 365 * 24 * 3600) &&
              X509_set_pubkey(certificate.get(), key.get());
    BN_free(number);
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    ok = ok &&
         X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                    reinterpret_cast<const unsigned char*>(dns.c_str()), -1, -1, 0) &&
         X509_set_issuer_name(certificate.get(), subject);
    if (!ok) {
        THROW_EXCEPTION("TLS: cannot fill in the certificate");
    }
    AddExtension(certificate.get(), NID_subject_alt_name, altName.c_str());
    AddExtension(certificate.get(), NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(certificate.get(), NID_key_usage, "critical,digitalSignature");
    AddExtension(certificate.get(), NID_ext_key_usage, "serverAuth");
    if (!X509_sign(certificate.get(), key.get(), EVP_sha256())) {
        THROW_EXCEPTION("TLS: cannot sign the certificate");
    }
    TBio keyText(BIO_new(BIO_s_mem()));
    TBio certificateText(BIO_new(BIO_s_mem()));
    if (!keyText || !certificateText ||
        !PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) ||
        !PEM_write_bio_X509(certificateText.get(), certificate.get())) {
        THROW_EXCEPTION("TLS: cannot encode the certificate");
    }
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(keyPath).parent_path(), error);
    // The key first: a certificate without its key would not be made again.
    if (!NFileUtil::WriteFileAtomically(keyPath, BioText(keyText.get()), 0600) ||
        !NFileUtil::WriteFileAtomically(certificatePath, BioText(certificateText.get()), 0644)) {
        THROW_EXCEPTION("TLS: cannot write %s", keyPath.c_str());
    }
}

TCertificate ReadCertificate(const std::string& path) {
    TBio bio(BIO_new_file(path.c_str(), "r"));
    TCertificate certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!certificate) {
        THROW_EXCEPTION("TLS: %s holds no certificate", path.c_str());
    }
    return certificate;
}

std::string Fingerprint(X509* certificate) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    X509_digest(certificate, EVP_sha256(), digest, &length);
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        char byte[4];
        snprintf(byte, sizeof byte, i ? ":%02X" : "%02X", digest[i]);
        text += byte;
    }
    return text;
}

}  // namespace

NTlsCertificate::SResult NTlsCertificate::LoadOrMake(const std::string& folder, const std::string& name) {
    SResult result;
    result.certificatePath = folder + "/cert.pem";
    result.keyPath = folder + "/key.pem";
    const bool haveCertificate = access(result.certificatePath.c_str(), F_OK) == 0;
    const bool haveKey = access(result.keyPath.c_str(), F_OK) == 0;
    if (!haveCertificate && !haveKey) {
        Make(result.certificatePath, result.keyPath, name);
        result.made = true;
    } else if (haveCertificate != haveKey) {
        THROW_EXCEPTION("TLS: %s without %s", (haveKey ? result.keyPath : result.certificatePath).c_str(),
                        (haveKey ? result.certificatePath : result.keyPath).c_str());
    }
    TCertificate certificate = ReadCertificate(result.certificatePath);
    TBio bio(BIO_new_file(result.keyPath.c_str(), "r"));
    TKey key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!key || X509_check_private_key(certificate.get(), key.get()) != 1) {
        THROW_EXCEPTION("TLS: %s is not the key of %s", result.keyPath.c_str(), result.certificatePath.c_str());
    }
    result.fingerprint = Fingerprint(certificate.get());
    return result;
}
