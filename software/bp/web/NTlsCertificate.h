#pragma once
// NTlsCertificate: the certificate and key the web server's HTTPS port presents.
//
// They are "cert.pem" (the certificate chain, PEM) and "key.pem" (the private key, PEM)
// in the folder given (the projector's "/etc/projector/tls/" under the runtime root).
// When neither exists, the projector makes its own, as devices do at first start: a new
// P-256 key and a self-signed certificate for its name (subject CN and a DNS
// subjectAltName; 10 years), written atomically, the key readable by its owner only. A
// folder with only one of the two, or files that do not load as a matching pair, are not
// overwritten: that is an operator's mistake to mend, reported by the exception.
//
// Any thread; nothing is kept between calls.
//
// LoadOrMakeApart does the same work in a child process made by fork, which then leaves
// with _exit; only the result comes back, through a pipe. The pages libcrypto touches to
// set itself up, read PEM and make a key (about 2 MiB here) are then the child's, and a
// server whose HTTPS port is never used never has them. The child calls only OpenSSL, the
// file system and malloc. glibc keeps malloc usable after fork, but AddressSanitizer's
// allocator (gcc 12) does not: a child forked while another thread allocates can hang
// there. So call it while the process has no other thread (vprojector starts its web
// server before its laser plant's thread), or at least none inside OpenSSL.

#include <string>

namespace NTlsCertificate {

struct SResult {
    std::string certificatePath;
    std::string keyPath;
    std::string fingerprint;  // SHA-256 of the certificate's DER, "AB:CD:..."
    bool made = false;        // made now
};

// Throws CException "TLS: ..." when the pair cannot be read, made or written.
SResult LoadOrMake(const std::string& folder, const std::string& name);
// Throws the child's CException "TLS: ...", or "TLS: the certificate check ..." when the
// child cannot be made or ends without an answer.
SResult LoadOrMakeApart(const std::string& folder, const std::string& name);

}  // namespace NTlsCertificate
