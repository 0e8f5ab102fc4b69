#include "CWebServer.h"

#include <fcntl.h>
#include <sys/socket.h>

#include "CException.h"
#include "CWebSessions.h"
#include "NWebTls.h"

using namespace NWebSession;

namespace {

std::string PeerName(const tcp::socket& socket) {
    beast::error_code error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    return error ? std::string("unknown") : peer.address().to_string() + "-" + std::to_string(peer.port());
}

}  // namespace

CWebServer::SImpl::SImpl(SWebConfig c, ILog& l, TAdopt a)
    : config(std::move(c)), log(l), adopt(std::move(a)), files(config.root), responder(files) {}

CWebServer::SImpl::~SImpl() = default;

void CWebServer::SImpl::Listen(std::unique_ptr<tcp::acceptor>& acceptor, int port) {
    beast::error_code error;
    const asio::ip::address address = asio::ip::make_address(config.address, error);
    if (error) {
        THROW_EXCEPTION("Web: %s is not an address to listen on", config.address.c_str());
    }
    acceptor = std::make_unique<tcp::acceptor>(io);
    const tcp::endpoint endpoint(address, static_cast<unsigned short>(port));
    acceptor->open(endpoint.protocol(), error);
    if (!error) {
        acceptor->set_option(tcp::acceptor::reuse_address(true), error);
    }
    if (!error) {
        acceptor->bind(endpoint, error);
    }
    if (!error) {
        acceptor->listen(asio::socket_base::max_listen_connections, error);
    }
    if (!error) {
        // Child processes started later (the front-ends) must not hold the port.
        fcntl(acceptor->native_handle(), F_SETFD, FD_CLOEXEC);
    }
    if (error) {
        acceptor.reset();
        THROW_EXCEPTION("Web: cannot listen on %s:%d: %s", config.address.c_str(), port, error.message().c_str());
    }
}

void CWebServer::SImpl::Accept(tcp::acceptor& acceptor, bool isSecure) {
    // Accepted here rather than by the acceptor, so that each connection is close-on-exec
    // from its first instant: the controller thread may start a child process meanwhile.
    acceptor.async_wait(tcp::acceptor::wait_read, [this, &acceptor, isSecure](beast::error_code error) {
        if (error == asio::error::operation_aborted) {
            return;
        }
        const int fd = error ? -1 : accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (error || (fd < 0 && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)) {
            // Out of descriptors, most likely: wait a little rather than spin on the
            // listening socket.
            auto pause = std::make_shared<asio::steady_timer>(io, std::chrono::milliseconds(100));
            pause->async_wait([this, &acceptor, isSecure, pause](beast::error_code waited) {
                if (!waited) {
                    Accept(acceptor, isSecure);
                }
            });
            return;
        }
        if (fd >= 0) {
            tcp::socket socket(io);
            beast::error_code ignored;
            socket.assign(acceptor.local_endpoint(ignored).protocol(), fd, error);
            if (connections >= kMaxConnections) {
                if (!refusing) {
                    log.LogError("Web: %zu connections at once; closing new ones until one ends", connections);
                    refusing = true;
                }
            } else if (!error) {
                refusing = false;
                socket.set_option(tcp::no_delay(true), error);
                const std::string peer = PeerName(socket);
                if (isSecure) {
                    if (MakeTls()) {
                        tls->Start(*this, std::move(socket), peer);
                    }
                } else {
                    std::make_shared<CHttpSession<TPlain>>(*this, TPlain(std::move(socket)), peer)->Start();
                }
            }
        }
        Accept(acceptor, isSecure);
    });
}

bool CWebServer::SImpl::MakeTls() {
    if (tls) {
        return true;
    }
    std::string error;
    try {
        tls = NWebTls::Module().MakeSessions(certificatePath, keyPath, error);
    } catch (const CException& e) {
        error = e.GetMessage();
    }
    if (!tls) {
        log.LogError("Web: TLS: %s: %s; HTTPS connections are closed until it loads", certificatePath.c_str(),
                     error.c_str());
        return false;
    }
    return true;
}

CWebServer::CWebServer(SWebConfig config, ILog& log, TAdopt adopt)
    : m_impl(std::make_unique<SImpl>(std::move(config), log, std::move(adopt))) {}

CWebServer::~CWebServer() { Stop(); }

void CWebServer::Start() {
    SImpl& impl = *m_impl;
    if (impl.config.plainHttp) {
        impl.Listen(impl.plain, impl.config.httpPort);
    }
    if (impl.config.httpsPort >= 0) {
        const NTlsCertificate::SResult certificate =
            NWebTls::LoadOrMakeApart(impl.config.tlsFolder, impl.config.name);
        impl.certificatePath = certificate.certificatePath;
        impl.keyPath = certificate.keyPath;
        impl.fingerprint = certificate.fingerprint;
        if (certificate.made) {
            impl.log.Log("Web: made a self-signed certificate %s, SHA-256 fingerprint %s",
                         certificate.certificatePath.c_str(), certificate.fingerprint.c_str());
        } else {
            impl.log.Log("Web: HTTPS certificate %s, SHA-256 fingerprint %s", certificate.certificatePath.c_str(),
                         certificate.fingerprint.c_str());
        }
        impl.Listen(impl.secure, impl.config.httpsPort);
    }
    if (impl.plain) {
        impl.Accept(*impl.plain, false);
    }
    if (impl.secure) {
        impl.Accept(*impl.secure, true);
    }
    impl.thread = std::thread([&impl] { impl.io.run(); });
    impl.log.Log("Web: serving %s on HTTP port %u and HTTPS port %u", impl.config.root.c_str(), GetHttpPort(),
                 GetHttpsPort());
}

void CWebServer::Stop() {
    SImpl& impl = *m_impl;
    if (impl.thread.joinable()) {
        impl.io.stop();
        impl.thread.join();
    }
    beast::error_code ignored;
    for (auto* acceptor : {impl.plain.get(), impl.secure.get()}) {
        if (acceptor) {
            acceptor->close(ignored);
        }
    }
}

unsigned short CWebServer::GetHttpPort() const {
    beast::error_code error;
    return m_impl->plain ? m_impl->plain->local_endpoint(error).port() : 0;
}

unsigned short CWebServer::GetHttpsPort() const {
    beast::error_code error;
    return m_impl->secure ? m_impl->secure->local_endpoint(error).port() : 0;
}

const std::string& CWebServer::GetFingerprint() const { return m_impl->fingerprint; }
