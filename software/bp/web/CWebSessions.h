#pragma once
// CHttpSession and CWebSocketBridge: one connection of the web server, as the plain port
// (CWebServer.cpp, over TPlain) and the TLS module (over TSecure) instantiate them. They
// live on the web thread and hold CWebServer::SImpl's parts by reference; the TLS steps
// (the handshake, the closing alert) are only named in code instantiated for TSecure, so
// the plain port never calls OpenSSL.

#include <sys/socket.h>

#include <boost/asio.hpp>
#include <boost/asio/ssl/stream_base.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "CWebServerImpl.h"
#include "jsonrpc/NulFramer.h"

namespace NWebSession {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = asio::ip::tcp;

using TPlain = beast::tcp_stream;

// What the socket pair carries at most unterminated: a reply the server queues whole.
constexpr size_t kMaxServerText = 8 * 1024 * 1024;

inline bool IsParseError(const beast::error_code& error) {
    return error.category() == beast::http::make_error_code(http::error::bad_target).category();
}

// One upgraded connection: carries messages between the browser and the socket pair.
template <class Stream>
class CWebSocketBridge : public std::enable_shared_from_this<CWebSocketBridge<Stream>> {
public:
    CWebSocketBridge(CWebServer::SImpl& server, Stream&& stream, std::string peer)
        : m_server(server),
          m_slot(server),
          m_ws(std::move(stream)),
          m_pair(server.io),
          m_stall(server.io),
          m_framer(kMaxServerText),
          m_peer(std::move(peer)) {}

    void Start(CWebResponder::TRequest&& request) {
        m_request = std::move(request);
        beast::get_lowest_layer(m_ws).expires_never();  // the WebSocket keeps its own time
        websocket::stream_base::timeout timeout = websocket::stream_base::timeout::suggested(beast::role_type::server);
        timeout.idle_timeout = std::chrono::seconds(CWebServer::kIdleTimeoutS);
        timeout.keep_alive_pings = true;
        m_ws.set_option(timeout);
        m_ws.set_option(websocket::stream_base::decorator(
            [](websocket::response_type& response) { response.set(http::field::server, "projector"); }));
        m_ws.read_message_max(CWebServer::kMaxMessageBytes);
        m_ws.async_accept(m_request, [self = this->shared_from_this()](beast::error_code error) { self->OnAccept(error); });
    }

private:
    void OnAccept(beast::error_code error) {
        if (error) {
            return;
        }
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
            m_server.log.LogError("Web: no socket pair for %s: %s", m_peer.c_str(), strerror(errno));
            Close(websocket::close_code::try_again_later);
            return;
        }
        beast::error_code assigned;
        m_pair.assign(asio::local::stream_protocol(), ends[0], assigned);
        m_server.adopt(ends[1], m_peer);
        ReadClient();
        ReadServer();
    }

    void ReadClient() {
        m_ws.async_read(m_in, [self = this->shared_from_this()](beast::error_code error, size_t) {
            self->OnClient(error);
        });
    }

    void OnClient(beast::error_code error) {
        if (error) {
            Finish();
            return;
        }
        if (!m_ws.got_text()) {
            Close(websocket::close_code::unknown_data);
            return;
        }
        m_toServer = beast::buffers_to_string(m_in.data());
        m_in.consume(m_in.size());
        if (m_toServer.find('\0') != std::string::npos) {
            m_toServer = "$";  // the server answers it with a parse error
        }
        m_toServer.push_back('\0');
        asio::async_write(m_pair, asio::buffer(m_toServer),
                          [self = this->shared_from_this()](beast::error_code written, size_t) {
                              if (written) {
                                  self->Finish();
                              } else {
                                  self->ReadClient();
                              }
                          });
    }

    // Read only while nothing waits for the browser: a browser that lags holds the
    // server's texts in the server's backlog, where its rules apply.
    void ReadServer() {
        m_pair.async_read_some(asio::buffer(m_area), [self = this->shared_from_this()](beast::error_code error,
                                                                                       size_t length) {
            self->OnServer(error, length);
        });
    }

    void OnServer(beast::error_code error, size_t length) {
        if (error) {
            if (error != asio::error::operation_aborted) {
                m_closeWhenSent = true;  // the server ended this client
                WriteClient();
            }
            return;
        }
        if (!m_framer.Add(m_area, length, m_toClient)) {
            Finish();
            return;
        }
        WriteClient();
    }

    void WriteClient() {
        if (m_writing) {
            return;
        }
        if (m_toClient.empty()) {
            if (m_closeWhenSent) {
                Close(websocket::close_code::try_again_later);
            } else {
                ReadServer();
            }
            return;
        }
        m_writing = true;
        m_ws.text(true);
        m_stall.expires_after(std::chrono::seconds(m_server.config.writeTimeoutS));
        m_stall.async_wait([self = this->shared_from_this()](beast::error_code error) {
            if (!error) {
                self->m_server.log.LogError("Web: closing %s: it has not read a message for %d s",
                                            self->m_peer.c_str(), self->m_server.config.writeTimeoutS);
                self->Finish();
            }
        });
        m_ws.async_write(asio::buffer(m_toClient.front()),
                         [self = this->shared_from_this()](beast::error_code error, size_t) {
                             self->m_writing = false;
                             self->m_stall.cancel();
                             if (error) {
                                 self->Finish();
                                 return;
                             }
                             self->m_toClient.pop_front();
                             self->WriteClient();
                         });
    }

    void Close(websocket::close_code code) {
        if (m_closing) {
            return;
        }
        m_closing = true;
        m_ws.async_close(code, [self = this->shared_from_this()](beast::error_code) { self->Finish(); });
    }

    // Ends both sides at once; the handlers still pending complete with errors and let go.
    void Finish() {
        beast::error_code ignored;
        m_pair.close(ignored);
        m_stall.cancel();
        beast::get_lowest_layer(m_ws).socket().close(ignored);
    }

    CWebServer::SImpl& m_server;
    CWebServer::SImpl::CSlot m_slot;
    websocket::stream<Stream> m_ws;
    asio::local::stream_protocol::socket m_pair;
    asio::steady_timer m_stall;
    beast::flat_buffer m_in;
    std::string m_toServer;
    char m_area[64 * 1024];
    CNulFramer m_framer;
    std::deque<std::string> m_toClient;
    bool m_writing = false;
    bool m_closeWhenSent = false;
    bool m_closing = false;
    std::string m_peer;
    CWebResponder::TRequest m_request;
};

// One HTTP connection: heads in, answers out, until the client or a rule ends it, or a
// WebSocket upgrade hands the stream to a bridge.
template <class Stream>
class CHttpSession : public std::enable_shared_from_this<CHttpSession<Stream>> {
public:
    static constexpr bool kSecure = !std::is_same<Stream, TPlain>::value;

    // stream: the accepted socket, inside a TLS stream on the HTTPS port.
    CHttpSession(CWebServer::SImpl& server, Stream&& stream, const std::string& peer)
        : m_server(server), m_stream(std::move(stream)), m_peer(std::string(kSecure ? "wss:" : "ws:") + peer) {}

    void Start() {
        if constexpr (kSecure) {
            beast::get_lowest_layer(m_stream).expires_after(std::chrono::seconds(m_server.config.readTimeoutS));
            m_stream.async_handshake(asio::ssl::stream_base::server,
                                     [self = this->shared_from_this()](beast::error_code error) {
                                         if (!error) {
                                             self->ReadHead();
                                         }
                                     });
        } else {
            ReadHead();
        }
    }

private:
    void ReadHead() {
        m_parser.emplace();
        m_parser->header_limit(CWebServer::kMaxHeadBytes);
        beast::get_lowest_layer(m_stream).expires_after(std::chrono::seconds(m_server.config.readTimeoutS));
        http::async_read_header(m_stream, m_buffer, *m_parser,
                                [self = this->shared_from_this()](beast::error_code error, size_t) {
                                    self->OnHead(error);
                                });
    }

    void OnHead(beast::error_code error) {
        if (error == http::error::header_limit) {
            Answer(CWebResponder::Error(http::status::request_header_fields_too_large, 11,
                                        "The request line or head is too long"));
            return;
        }
        if (error && IsParseError(error) && error != http::error::end_of_stream) {
            Answer(CWebResponder::Error(http::status::bad_request, 11, "The request could not be read"));
            return;
        }
        if (error) {
            End();
            return;
        }
        const CWebResponder::TRequest& request = m_parser->get();
        const bool hasBody = m_parser->chunked() || (m_parser->content_length() && *m_parser->content_length() > 0);
        if (websocket::is_upgrade(request) && !hasBody && request.target() == CWebResponder::kJsonRpcTarget) {
            auto bridge = std::make_shared<CWebSocketBridge<Stream>>(m_server, std::move(m_stream), m_peer);
            bridge->Start(m_parser->release());
            return;
        }
        Answer(m_server.responder.Respond(request, hasBody));
    }

    void Answer(CWebResponder::TResponse&& response) {
        m_response = std::move(response);
        beast::get_lowest_layer(m_stream).expires_after(std::chrono::seconds(m_server.config.writeTimeoutS));
        http::async_write(m_stream, m_response, [self = this->shared_from_this()](beast::error_code error, size_t) {
            if (!error && self->m_response.keep_alive()) {
                self->ReadHead();
            } else {
                self->End();
            }
        });
    }

    void End() {
        beast::error_code ignored;
        if constexpr (kSecure) {
            beast::get_lowest_layer(m_stream).expires_after(std::chrono::seconds(1));
            m_stream.async_shutdown([self = this->shared_from_this()](beast::error_code) {
                beast::error_code ignoredToo;
                beast::get_lowest_layer(self->m_stream).socket().close(ignoredToo);
            });
        } else {
            m_stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
            m_stream.socket().close(ignored);
        }
    }

    CWebServer::SImpl& m_server;
    CWebServer::SImpl::CSlot m_slot{m_server};
    Stream m_stream;
    beast::flat_buffer m_buffer{CWebServer::kMaxHeadBytes};
    std::optional<http::request_parser<http::empty_body>> m_parser;
    CWebResponder::TResponse m_response;
    std::string m_peer;
};

}  // namespace NWebSession
