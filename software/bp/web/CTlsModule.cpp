// The TLS module: the certificate check and the HTTPS sessions, over OpenSSL (ITlsModule.h).

#include <boost/asio/ssl.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "CWebSessions.h"
#include "ITlsModule.h"

namespace {

using TSecure = NWebSession::beast::ssl_stream<NWebSession::TPlain>;
namespace ssl = boost::asio::ssl;

class CTlsSessions : public ITlsSessions {
public:
    explicit CTlsSessions(ssl::context&& context) : m_context(std::move(context)) {}

    void Start(CWebServer::SImpl& server, boost::asio::ip::tcp::socket&& socket, const std::string& peer) override {
        std::make_shared<NWebSession::CHttpSession<TSecure>>(server, TSecure(std::move(socket), m_context), peer)
            ->Start();
    }

private:
    ssl::context m_context;
};

class CTlsModule : public ITlsModule {
public:
    NTlsCertificate::SResult LoadOrMake(const std::string& folder, const std::string& name) const override {
        return NTlsCertificate::LoadOrMake(folder, name);
    }

    std::unique_ptr<ITlsSessions> MakeSessions(const std::string& certificatePath, const std::string& keyPath,
                                               std::string& error) const override {
        ssl::context context(ssl::context::tls_server);
        boost::system::error_code failed;
        context.set_options(ssl::context::default_workarounds | ssl::context::no_sslv2 | ssl::context::no_sslv3 |
                            ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
        context.use_certificate_chain_file(certificatePath, failed);
        if (!failed) {
            context.use_private_key_file(keyPath, ssl::context::pem, failed);
        }
        if (failed) {
            error = failed.message();
            return nullptr;
        }
        return std::make_unique<CTlsSessions>(std::move(context));
    }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const ITlsModule* ProjectorWebTlsModule() {
    static const CTlsModule module;
    return &module;
}
