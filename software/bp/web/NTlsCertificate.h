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
// This is the TLS module's code (ITlsModule.h): the web library runs it through
// NWebTls, in a child process at start.

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

}  // namespace NTlsCertificate
