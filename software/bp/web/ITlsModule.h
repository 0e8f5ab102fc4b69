#pragma once
// ITlsModule: the web server's HTTPS half, as the TLS module ("libprojector_web_tls.so",
// beside libprojector_bp_web) provides it: the certificate check and the TLS sessions,
// everything that calls OpenSSL. NWebTls loads the module the first time either is needed,
// so a process whose HTTPS port is never used maps neither libssl nor libcrypto (about
// 1.8 MiB of resident memory with their own dependencies); the check at start runs in a
// child process that loads it there.
//
// Threads: the module's object has no state of its own. ITlsSessions is used on the web
// thread only.

#include <boost/asio/ip/tcp.hpp>
#include <memory>
#include <string>

#include "CWebServer.h"
#include "NTlsCertificate.h"

// One TLS server context: the certificate and key loaded, ready for connections.
class ITlsSessions {
public:
    virtual ~ITlsSessions() = default;
    // Starts an HTTPS connection (a TLS handshake, then HTTP as on the plain port) on a
    // socket the server accepted.
    virtual void Start(CWebServer::SImpl& server, boost::asio::ip::tcp::socket&& socket, const std::string& peer) = 0;
};

class ITlsModule {
public:
    virtual ~ITlsModule() = default;
    // NTlsCertificate::LoadOrMake, in the calling process.
    virtual NTlsCertificate::SResult LoadOrMake(const std::string& folder, const std::string& name) const = 0;
    // The context for this pair (TLS 1.2 and later); null, with OpenSSL's reason in
    // `error`, when they do not load.
    virtual std::unique_ptr<ITlsSessions> MakeSessions(const std::string& certificatePath, const std::string& keyPath,
                                                       std::string& error) const = 0;
};

// The module's one entry point, looked up by this name: its object, which lives as long as
// the process.
extern "C" const ITlsModule* ProjectorWebTlsModule();
using TWebTlsModuleEntry = const ITlsModule* (*)();
constexpr const char* kWebTlsModule = "libprojector_web_tls.so";
constexpr const char* kWebTlsModuleEntry = "ProjectorWebTlsModule";
