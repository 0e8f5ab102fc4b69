#pragma once
// Json::Rpc::Server: the listening half of a JSON-RPC TCP server: binds an IPv4 address
// and port, listens, and holds the method table (Handler) that requests are dispatched
// to. The transport that accepts clients and frames their messages derives from it.
//
// Ownership: owns the listening descriptor (closed by Close or the destructor) and the
// handler. Thread contract: the server's event thread only.

#include <string>

#include "jsonrpc/Handler.h"

namespace Json {
namespace Rpc {

class Server {
public:
    // Nothing is opened until Bind. address is a dotted IPv4 address ("0.0.0.0" = any).
    Server(const std::string& address, unsigned short port);
    virtual ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Creates the socket (SO_REUSEADDR, close-on-exec, non-blocking) and binds it; false
    // (nothing left open) on failure, a malformed address included. A socket bound
    // before is closed first.
    bool Bind();
    // False when not bound or listen fails.
    bool Listen(int backlog = 64) const;
    void Close();

    int GetSocket() const { return m_socket; }
    // The bound port (the real one when 0 was asked for); 0 before Bind.
    unsigned short GetPort() const;
    const std::string& GetAddress() const { return m_address; }

    // The method table.
    void AddMethod(CallbackMethod* method) { m_handler.AddMethod(method); }
    void DeleteMethod(const std::string& name) { m_handler.DeleteMethod(name); }
    Handler& GetHandler() { return m_handler; }

private:
    std::string m_address;
    unsigned short m_port;
    int m_socket = -1;
    Handler m_handler;
};

}  // namespace Rpc
}  // namespace Json
