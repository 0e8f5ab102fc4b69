#pragma once
// CWebResponder: the web server's answer to one request head, apart from the WebSocket
// upgrade of "/jsonrpc" which the server takes before asking: the page's files by GET and
// HEAD, and a clear status for everything else:
//   405  a method other than GET or HEAD (with "Allow: GET, HEAD")
//   413  a request that carries a body: nothing here takes one (its bytes are never read;
//        the server closes the connection after this answer)
//   426  "/jsonrpc" without a WebSocket upgrade
//   404  a target NWebPath refuses ("/../", encoded dots, hidden files) and a file that is
//        not there, not regular, or behind a symbolic link (the same answer: a client learns
//        nothing of what lies around the page's folder)
//   304  a GET or HEAD whose If-None-Match holds the file's tag
//   200  the file (gzip-encoded when the client accepts it and the build made a copy)
// The server's own statuses, for heads that never reach here, are 400 (a head that does not
// parse) and 431 (a request line or head over the limit).
//
// Every answer says "Cache-Control: no-cache" (the browser keeps the file and asks again
// with its tag, so a new page shows at the next load) and keeps the page to itself
// (Content-Security-Policy: its own origin only, WebSockets included; no framing).
//
// Thread contract: const; Respond may be called from any thread.

#include <boost/beast/http.hpp>

#include "CStaticFiles.h"
#include "WebApi.h"

class PROJ_WEB_API CWebResponder {
public:
    using TRequest = boost::beast::http::request<boost::beast::http::empty_body>;
    using TResponse = boost::beast::http::response<boost::beast::http::string_body>;
    static constexpr const char* kJsonRpcTarget = "/jsonrpc";

    explicit CWebResponder(const CStaticFiles& files) : m_files(files) {}

    // hasBody: the head announces a body (a Content-Length above 0, or chunked).
    TResponse Respond(const TRequest& request, bool hasBody) const;

    // A short plain-text answer with `status`, closing the connection.
    static TResponse Error(boost::beast::http::status status, unsigned int version, const char* why);
    // True when Accept-Encoding takes gzip (not refused by q=0).
    static bool AcceptsGzip(boost::beast::string_view acceptEncoding);

private:
    const CStaticFiles& m_files;
};
