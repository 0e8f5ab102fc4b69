// The web server on loopback: the page's files and the statuses of bad requests, the
// WebSocket bridge to an adopted socket pair (the JSON-RPC server's side is played by the
// test, so every byte it gets is checked), its limits, and HTTPS with the certificate it
// made.

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <mutex>
#include <thread>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <gtest/gtest.h>

#include "BufferedLog.h"
#include "CWebServer.h"
#include "TempRoot.h"
#include "ThrownMessage.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;

namespace {

class WebServerTest : public ::testing::Test {
protected:
    WebServerTest() {
        m_root.WriteFile("/www/index.html", "<!doctype html><title>page</title>");
        m_root.WriteFile("/www/app.js", "console.log('page');");
        m_root.WriteFile("/www/app.js.gz", std::string("\x1f\x8b gzip bytes", 13));
        m_root.WriteFile("/www/sub/style.css", "body{}");
        m_root.WriteFile("/www/.hidden", "hidden");
        m_root.WriteFile("/secret", "outside");
        std::filesystem::create_symlink(m_root.Path("/www/index.html"), m_root.Path("/www/link.html"));
    }

    ~WebServerTest() override {
        m_server.reset();
        for (int fd : m_adopted) {
            close(fd);
        }
    }

    SWebConfig Config() const {
        SWebConfig config;
        config.address = "127.0.0.1";
        config.httpPort = 0;
        config.httpsPort = 0;
        config.root = m_root.Path("/www");
        config.tlsFolder = m_root.Path("/etc/projector/tls");
        config.name = "booth-1";
        return config;
    }

    void Start(SWebConfig config) {
        m_server = std::make_unique<CWebServer>(config, m_log, [this](int fd, const std::string&) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_adopted.push_back(fd);
            m_changed.notify_all();
        });
        m_server->Start();
    }
    void Start() { Start(Config()); }

    // The JSON-RPC side of the next WebSocket; -1 when none came within 5 s.
    int Adopted(size_t index = 0) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_adopted.size() > index; });
        return m_adopted.size() > index ? m_adopted[index] : -1;
    }

    // Reads from the adopted end until `count` bytes came or 5 s passed.
    static std::string ReadPair(int fd, size_t count) {
        std::string got;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (got.size() < count && std::chrono::steady_clock::now() < end) {
            pollfd ready{fd, POLLIN, 0};
            if (poll(&ready, 1, 100) == 1) {
                char area[4096];
                const ssize_t length = read(fd, area, sizeof area);
                if (length <= 0) {
                    break;
                }
                got.append(area, static_cast<size_t>(length));
            }
        }
        return got;
    }

    // True when the adopted end reads end of file within 5 s (the bridge let it go).
    static bool PairEnds(int fd) {
        for (int i = 0; i < 50; ++i) {
            pollfd ready{fd, POLLIN, 0};
            char area[4096];
            if (poll(&ready, 1, 100) == 1 && read(fd, area, sizeof area) <= 0) {
                return true;
            }
        }
        return false;
    }

    tcp::socket Connect(unsigned short port) {
        tcp::socket socket(m_io);
        socket.connect({asio::ip::make_address("127.0.0.1"), port});
        return socket;
    }

    // Sends raw bytes on a new connection and returns all the server sends until it closes.
    std::string Exchange(const std::string& bytes) {
        tcp::socket socket = Connect(m_server->GetHttpPort());
        asio::write(socket, asio::buffer(bytes));
        std::string got;
        beast::error_code error;
        char area[4096];
        while (!error) {
            got.append(area, socket.read_some(asio::buffer(area), error));
        }
        return got;
    }

    std::unique_ptr<websocket::stream<tcp::socket>> OpenWebSocket() {
        auto ws = std::make_unique<websocket::stream<tcp::socket>>(Connect(m_server->GetHttpPort()));
        ws->handshake("127.0.0.1", "/jsonrpc");
        return ws;
    }

    // The close code the server sent, after reading until the WebSocket ends.
    static int CloseCode(websocket::stream<tcp::socket>& ws) {
        beast::flat_buffer buffer;
        beast::error_code error;
        while (!error) {
            ws.read(buffer, error);
        }
        return error == websocket::error::closed ? ws.reason().code : -1;
    }

    CTempRoot m_root;
    CBufferedLog m_log;
    asio::io_context m_io;
    std::unique_ptr<CWebServer> m_server;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<int> m_adopted;
};

http::response<http::string_body> Request(tcp::socket& socket, http::verb method, const std::string& target,
                                          const std::vector<std::pair<http::field, std::string>>& fields = {}) {
    http::request<http::empty_body> request(method, target, 11);
    request.set(http::field::host, "127.0.0.1");
    for (const auto& field : fields) {
        request.set(field.first, field.second);
    }
    http::write(socket, request);
    beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    parser.skip(method == http::verb::head);
    http::read(socket, buffer, parser);
    return parser.release();
}

TEST_F(WebServerTest, FilesAreServedWithTypeTagAndGzipOverOneConnection) {
    Start();
    tcp::socket socket = Connect(m_server->GetHttpPort());

    auto page = Request(socket, http::verb::get, "/");
    EXPECT_EQ(200, page.result_int());
    EXPECT_EQ("<!doctype html><title>page</title>", page.body());
    EXPECT_EQ("text/html; charset=utf-8", page[http::field::content_type]);
    const std::string tag(page[http::field::etag]);
    ASSERT_FALSE(tag.empty());

    auto again = Request(socket, http::verb::get, "/index.html", {{http::field::if_none_match, tag}});
    EXPECT_EQ(304, again.result_int());
    EXPECT_TRUE(again.body().empty());

    auto zipped = Request(socket, http::verb::get, "/app.js", {{http::field::accept_encoding, "br, gzip;q=0.8"}});
    EXPECT_EQ("gzip", zipped[http::field::content_encoding]);
    EXPECT_EQ(std::string("\x1f\x8b gzip bytes", 13), zipped.body());
    EXPECT_EQ("text/javascript; charset=utf-8", zipped[http::field::content_type]);
    auto refused = Request(socket, http::verb::get, "/app.js", {{http::field::accept_encoding, "gzip;q=0"}});
    EXPECT_EQ("console.log('page');", refused.body());

    auto head = Request(socket, http::verb::head, "/sub/style.css");
    EXPECT_EQ(200, head.result_int());
    EXPECT_EQ("6", head[http::field::content_length]);
    EXPECT_EQ("text/css; charset=utf-8", head[http::field::content_type]);
}

TEST_F(WebServerTest, NothingOutsideThePageFolderOrBehindALinkIsServed) {
    Start();
    tcp::socket socket = Connect(m_server->GetHttpPort());
    for (const char* target : {"/../secret", "/%2e%2e/secret", "/sub/%2E%2E/index.html", "/sub%2fstyle.css",
                               "/.hidden", "/link.html", "/sub", "/missing.js", "/index.html%00", "/%zz"}) {
        EXPECT_EQ(404, Request(socket, http::verb::get, target).result_int()) << target;
    }
    EXPECT_EQ(200, Request(socket, http::verb::get, "/sub//style.css?v=2#top").result_int());
}

TEST_F(WebServerTest, BadRequestsGetAClearStatusAndTheServerGoesOn) {
    Start();
    const auto status = [&](const std::string& bytes) { return Exchange(bytes).substr(0, 12); };
    EXPECT_EQ("HTTP/1.1 405", status("POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n{}"));
    EXPECT_EQ("HTTP/1.1 413", status("GET / HTTP/1.1\r\nHost: x\r\nContent-Length: 5\r\n\r\nhello"));
    EXPECT_EQ("HTTP/1.1 413", status("GET / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 431", status("GET /" + std::string(9000, 'a') + " HTTP/1.1\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 431", status("GET / HTTP/1.1\r\nX-Big: " + std::string(9000, 'b') + "\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 400", status("\x16\x03\x01 not http at all\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 426", status("GET /jsonrpc HTTP/1.1\r\nHost: x\r\n\r\n"));
    EXPECT_EQ("HTTP/1.1 200", status("GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"));
}

TEST_F(WebServerTest, WebSocketCarriesEachMessageAsOneNulFramedText) {
    Start();
    auto ws = OpenWebSocket();
    const int pair = Adopted();
    ASSERT_GE(pair, 0);

    ws->text(true);
    ws->write(asio::buffer(std::string("{\"id\":1}")));
    ws->write(asio::buffer(std::string("a\0b", 3)));  // never JSON: the server answers a parse error
    EXPECT_EQ(std::string("{\"id\":1}\0$\0", 11), ReadPair(pair, 11));

    const std::string fromServer("{\"r\":1}\0{\"r\":2}\0{\"r\"", 20);
    ASSERT_EQ(static_cast<ssize_t>(fromServer.size()), write(pair, fromServer.data(), fromServer.size()));
    ASSERT_EQ(4, write(pair, ":3}\0", 4));
    for (const char* expected : {"{\"r\":1}", "{\"r\":2}", "{\"r\":3}"}) {
        beast::flat_buffer buffer;
        ws->read(buffer);
        EXPECT_TRUE(ws->got_text());
        EXPECT_EQ(expected, beast::buffers_to_string(buffer.data()));
    }

    bool pong = false;
    ws->control_callback([&](websocket::frame_type kind, beast::string_view) { pong |= kind == websocket::frame_type::pong; });
    ws->ping({});
    for (int message = 0; message < 3 && !pong; ++message) {  // the pong is seen while reading
        ASSERT_EQ(3, write(pair, "{}\0", 3));
        beast::flat_buffer buffer;
        ws->read(buffer);
    }
    EXPECT_TRUE(pong);

    ws->close(websocket::close_code::normal);
    EXPECT_TRUE(PairEnds(pair));
}

TEST_F(WebServerTest, FramesTheBridgeCannotCarryCloseWithTheirCode) {
    Start();
    {
        auto ws = OpenWebSocket();
        ws->binary(true);
        ws->write(asio::buffer(std::string("\x01\x02")));
        EXPECT_EQ(websocket::close_code::unknown_data, CloseCode(*ws));
        EXPECT_TRUE(PairEnds(Adopted(0)));
    }
    {
        auto ws = OpenWebSocket();
        ws->text(true);
        ws->write(asio::buffer(std::string(CWebServer::kMaxMessageBytes + 1, 'x')));
        EXPECT_EQ(websocket::close_code::too_big, CloseCode(*ws));
        EXPECT_TRUE(PairEnds(Adopted(1)));
    }
    // Invalid UTF-8 and an unmasked client frame, written raw after a real handshake.
    const auto raw = [&](const std::string& frame) {
        auto ws = OpenWebSocket();
        asio::write(ws->next_layer(), asio::buffer(frame));
        return CloseCode(*ws);
    };
    EXPECT_EQ(websocket::close_code::bad_payload, raw(std::string("\x81\x82\x00\x00\x00\x00\xc3\x28", 8)));
    EXPECT_EQ(websocket::close_code::protocol_error, raw(std::string("\x81\x02hi", 4)));
}

TEST_F(WebServerTest, TheServerEndingItsClientClosesTheWebSocketToTryAgainLater) {
    Start();
    auto ws = OpenWebSocket();
    const int pair = Adopted();
    ASSERT_EQ(8, write(pair, "{\"r\":1}\0", 8));
    close(pair);
    m_adopted.clear();
    beast::flat_buffer buffer;
    ws->read(buffer);
    EXPECT_EQ("{\"r\":1}", beast::buffers_to_string(buffer.data()));  // what was sent before still arrives
    EXPECT_EQ(websocket::close_code::try_again_later, CloseCode(*ws));
}

TEST_F(WebServerTest, AClientThatNeverReadsIsClosedAfterTheWriteTimeOut) {
    SWebConfig config = Config();
    config.writeTimeoutS = 1;
    Start(config);
    auto ws = OpenWebSocket();
    const int pair = Adopted();
    fcntl(pair, F_SETFL, fcntl(pair, F_GETFL) | O_NONBLOCK);
    const std::string message = std::string(60000, 'n') + '\0';
    bool ended = false;
    for (int turn = 0; turn < 200 && !ended; ++turn) {
        pollfd ready{pair, POLLOUT, 0};
        poll(&ready, 1, 50);
        ended = (ready.revents & (POLLHUP | POLLERR)) != 0 ||
                (write(pair, message.data(), message.size()) < 0 && errno != EAGAIN);
    }
    EXPECT_TRUE(ended);
    EXPECT_TRUE(m_log.Logged("has not read a message for 1 s"));
}

TEST_F(WebServerTest, ConnectionsBeyondTheLimitAreClosedAndTheServerGoesOn) {
    Start();
    std::vector<tcp::socket> sockets;
    for (int i = 0; i < 200; ++i) {
        sockets.push_back(Connect(m_server->GetHttpPort()));
    }
    // The refused ones are closed at once; the others wait for a request (20 s).
    size_t closed = 0;
    std::vector<bool> seen(sockets.size());
    for (int round = 0; round < 50 && closed < 200 - CWebServer::kMaxConnections; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (size_t i = 0; i < sockets.size(); ++i) {
            pollfd ready{sockets[i].native_handle(), POLLIN, 0};
            char byte;
            if (!seen[i] && poll(&ready, 1, 0) == 1 && recv(sockets[i].native_handle(), &byte, 1, 0) == 0) {
                seen[i] = true;
                ++closed;
            }
        }
    }
    EXPECT_EQ(200 - CWebServer::kMaxConnections, closed);
    EXPECT_TRUE(m_log.Logged("connections at once"));
    sockets.clear();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ("HTTP/1.1 200", Exchange("GET / HTTP/1.1\r\nConnection: close\r\n\r\n").substr(0, 12));
}

TEST_F(WebServerTest, HttpsPresentsTheCertificateItMadeAndKeepsIt) {
    Start();
    const std::string fingerprint = m_server->GetFingerprint();
    ASSERT_EQ(95u, fingerprint.size());
    EXPECT_TRUE(m_log.Logged("made a self-signed certificate"));

    asio::ssl::context client(asio::ssl::context::tls_client);
    beast::ssl_stream<tcp::socket> tls(Connect(m_server->GetHttpsPort()), client);
    tls.handshake(asio::ssl::stream_base::client);
    X509* certificate = SSL_get_peer_certificate(tls.native_handle());
    ASSERT_NE(nullptr, certificate);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    X509_digest(certificate, EVP_sha256(), digest, &length);
    char name[64] = "";
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name, sizeof name);
    X509_free(certificate);
    EXPECT_EQ("booth-1", std::string(name));
    char first[3];
    snprintf(first, sizeof first, "%02X", digest[0]);
    EXPECT_EQ(32u, length);
    EXPECT_EQ(first, fingerprint.substr(0, 2));

    http::request<http::empty_body> request(http::verb::get, "/", 11);
    http::write(tls, request);
    beast::flat_buffer buffer;
    http::response<http::string_body> response;
    http::read(tls, buffer, response);
    EXPECT_EQ("<!doctype html><title>page</title>", response.body());

    websocket::stream<beast::ssl_stream<tcp::socket>> wss(Connect(m_server->GetHttpsPort()), client);
    wss.next_layer().handshake(asio::ssl::stream_base::client);
    wss.handshake("127.0.0.1", "/jsonrpc");
    wss.write(asio::buffer(std::string("{}")));
    EXPECT_EQ(std::string("{}\0", 3), ReadPair(Adopted(), 3));

    m_server.reset();
    m_log.Clear();
    Start();
    EXPECT_EQ(fingerprint, m_server->GetFingerprint());
    EXPECT_FALSE(m_log.Logged("made a self-signed certificate"));
}

TEST_F(WebServerTest, ACertificateThatStopsLoadingClosesHttpsUntilItLoadsAgain) {
    Start();  // checked here; the TLS context waits for the first HTTPS connection
    const std::string path = m_root.Path("/etc/projector/tls/cert.pem");
    std::filesystem::rename(path, path + ".away");
    asio::ssl::context client(asio::ssl::context::tls_client);
    beast::ssl_stream<tcp::socket> refused(Connect(m_server->GetHttpsPort()), client);
    beast::error_code error;
    refused.handshake(asio::ssl::stream_base::client, error);
    EXPECT_TRUE(error);
    EXPECT_TRUE(m_log.Logged("HTTPS connections are closed until it loads"));

    std::filesystem::rename(path + ".away", path);
    beast::ssl_stream<tcp::socket> served(Connect(m_server->GetHttpsPort()), client);
    served.handshake(asio::ssl::stream_base::client, error);
    EXPECT_FALSE(error) << error.message();
}

TEST_F(WebServerTest, AKeyWithoutItsCertificateIsReportedNotReplaced) {
    m_root.WriteFile("/etc/projector/tls/key.pem", "not a key");
    CWebServer server(Config(), m_log, [](int fd, const std::string&) { close(fd); });
    EXPECT_EQ("TLS: " + m_root.Path("/etc/projector/tls/key.pem") + " without " +
                  m_root.Path("/etc/projector/tls/cert.pem"),
              ThrownMessage([&] { server.Start(); }));
    EXPECT_EQ("not a key", CTempRoot::ReadFile(m_root.Path("/etc/projector/tls/key.pem")));
}

}  // namespace
