#pragma once
// NWebTls: the web library's door to the TLS module (ITlsModule.h).
//
// Any thread. Module throws CException "Unable to load the TLS module: ..." when the module
// cannot be loaded.

#include "ITlsModule.h"

namespace NWebTls {

// The module's object, loaded at the first call.
const ITlsModule& Module();

// Module().LoadOrMake, done in a child process made by fork, which then leaves with _exit;
// only the result comes back, through a pipe. The pages libcrypto touches to set itself
// up, read PEM and make a key (about 2 MiB here) are then the child's, and a server whose
// HTTPS port is never used never has them. The child calls only OpenSSL, the file system
// and malloc. glibc keeps malloc usable after fork, but AddressSanitizer's allocator
// (gcc 12) does not: a child forked while another thread allocates can hang there. So
// call it while the process has no other thread (vprojector starts its web server before
// its laser plant's thread), or at least none inside OpenSSL.
// Throws the child's CException "TLS: ...", or "TLS: the certificate check ..." when the
// child cannot be made or ends without an answer.
NTlsCertificate::SResult LoadOrMakeApart(const std::string& folder, const std::string& name);

}  // namespace NWebTls
