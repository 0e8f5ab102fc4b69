#pragma once
// CWebServer: the projector's web page and the WebSocket road to its JSON-RPC API, over
// HTTP and HTTPS (the same answers on both ports).
//
//   files      GET and HEAD of the page's files (CWebResponder, CStaticFiles); other
//              requests get a clear status, a head that does not parse 400, a request
//              line or head over kMaxHeadBytes 431. HTTP/1.1 keep-alive; a head must
//              arrive within the configured read time-out and an answer leave within the write
//              time-out.
//   /jsonrpc   a GET with a WebSocket upgrade (RFC 6455) becomes one more client of the
//              controller's JSON-RPC server, carrying exactly what the TCP port carries:
//              each text message one JSON-RPC text (a batch included), each text the
//              server sends (a reply or a notification) one text message. A message over
//              kMaxMessageBytes closes with 1009, a text message that is not UTF-8 with
//              1007, a binary one with 1003; a text holding a NUL byte (never JSON) is
//              answered like any unreadable text, with a parse error. A client gets a ping
//              after kIdleTimeoutS of silence and is closed if it does not answer.
//   HTTPS      the certificate and key from NTlsCertificate (made at first start when
//              there are none); TLS 1.2 and later. Everything that calls OpenSSL lives in
//              the TLS module (ITlsModule.h): Start checks the pair in a child process that
//              loads it, and this process loads it at the first HTTPS connection, so a
//              server whose HTTPS port is not used never maps libssl or libcrypto. Should
//              the files no longer load by then, or the module not load, that is logged
//              and each HTTPS connection is closed until they do.
//   limits     at most kMaxConnections connections at once over both ports (one more is
//              accepted and closed at once, logged once until there is room again).
//
// How a WebSocket reaches the JSON-RPC server: no JSON-RPC runs here. Each upgraded
// connection gets a Unix socket pair; this side writes each message followed by a NUL
// into one end and sends each NUL-framed text read from it as a message. The other end is
// handed to `adopt`, which must pass it on the JSON-RPC server's own thread to
// CJsonRpcTcpServer::Adopt (CControllerLoop::Post does). So a WebSocket client is a TCP
// client to that server in every way: its limits on clients, its access levels and
// "session:connect", its backlog rules for a lagging client (this side reads the pair only
// as fast as the browser takes messages, so the server sees the lag), its notifications.
// A client that stops reading altogether is closed here once one message has waited
// the write time-out; the server closing its end (its client limit, its backlog bound) closes
// the WebSocket with 1013. Logins live on the connection, never in a cookie, so a page
// of another site that opens a WebSocket here gets no more than any anonymous client.
//
// Threads: Start starts one thread of its own, the web thread, which runs every
// connection, TLS handshake and file read; the caller's thread only constructs, starts
// and stops. With HTTPS, Start forks for the certificate check (NTlsCertificate): start
// the server before the process starts other threads. `adopt` is called on the web thread. The log must take calls from any
// thread (CLogger does).
//
// Errors: Start throws CException "Web: ..." when a port cannot be bound or the TLS
// certificate cannot be loaded or made; nothing runs then.

#include <functional>
#include <memory>
#include <string>

#include "log/ILog.h"
#include "WebApi.h"

struct SWebConfig {
    std::string address = "0.0.0.0";
    int httpPort = 80;        // 0: any free port
    int httpsPort = 443;      // 0: any free port; -1: no HTTPS
    bool plainHttp = true;    // false: no HTTP port
    std::string root;         // the page's folder
    std::string tlsFolder;    // cert.pem and key.pem
    std::string name;         // the projector's name, for a certificate made here
    int readTimeoutS = 20;    // for a request head (and a TLS handshake)
    int writeTimeoutS = 20;   // for an answer, or one WebSocket message, to leave
};

class PROJ_WEB_API CWebServer {
public:
    static constexpr size_t kMaxConnections = 128;
    static constexpr unsigned int kMaxHeadBytes = 8 * 1024;
    static constexpr size_t kMaxMessageBytes = 1024 * 1024;
    static constexpr int kIdleTimeoutS = 60;

    // The descriptor is one end of a connected, non-blocking, close-on-exec Unix stream
    // socket pair, owned from then on by the callee; peer names the browser's address
    // ("ws:a.b.c.d-port", "wss:...").
    using TAdopt = std::function<void(int fd, const std::string& peer)>;

    CWebServer(SWebConfig config, ILog& log, TAdopt adopt);
    ~CWebServer();
    CWebServer(const CWebServer&) = delete;
    CWebServer& operator=(const CWebServer&) = delete;

    void Start();
    // Closes the ports and every connection and joins the web thread. Idempotent.
    void Stop();
    // The bound ports (the real ones when 0 was asked for); 0 for a port not served.
    unsigned short GetHttpPort() const;
    unsigned short GetHttpsPort() const;
    // The SHA-256 fingerprint of the HTTPS certificate; empty without HTTPS.
    const std::string& GetFingerprint() const;

    struct SImpl;  // the web thread's state, opaque outside CWebServer.cpp

private:
    std::unique_ptr<SImpl> m_impl;
};
