#pragma once
// CWebServer::SImpl: the web server's state, shared by CWebServer.cpp and the TLS module's
// sessions (CWebSessions.h). Everything in it belongs to the web thread once Start has
// started it.

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <memory>
#include <string>
#include <thread>

#include "CStaticFiles.h"
#include "CWebResponder.h"
#include "CWebServer.h"

class ITlsSessions;

struct CWebServer::SImpl {
    SImpl(SWebConfig c, ILog& l, TAdopt a);
    ~SImpl();

    // Counts a connection for as long as it lives (web thread only).
    class CSlot {
    public:
        explicit CSlot(SImpl& server) : m_server(server) { ++m_server.connections; }
        ~CSlot() { --m_server.connections; }
        CSlot(const CSlot&) = delete;
        CSlot& operator=(const CSlot&) = delete;

    private:
        SImpl& m_server;
    };

    void Listen(std::unique_ptr<boost::asio::ip::tcp::acceptor>& acceptor, int port);
    // The TLS context, made at the first HTTPS connection (web thread); false, logged,
    // when the certificate no longer loads or the TLS module cannot be loaded.
    bool MakeTls();
    void Accept(boost::asio::ip::tcp::acceptor& acceptor, bool secure);

    SWebConfig config;
    ILog& log;
    TAdopt adopt;
    CStaticFiles files;
    CWebResponder responder;
    // Outlive io: destroying io destroys the connections it still holds, which count down.
    size_t connections = 0;
    bool refusing = false;
    // Outlives io too: the TLS connections io still holds refer to its context.
    std::unique_ptr<ITlsSessions> tls;
    boost::asio::io_context io{1};
    std::string certificatePath;
    std::string keyPath;
    std::unique_ptr<boost::asio::ip::tcp::acceptor> plain;
    std::unique_ptr<boost::asio::ip::tcp::acceptor> secure;
    std::string fingerprint;
    std::thread thread;
};
