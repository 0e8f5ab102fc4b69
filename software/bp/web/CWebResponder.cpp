#include "CWebResponder.h"

#include <ctime>

#include "NWebPath.h"

namespace http = boost::beast::http;

namespace {

const char kServerName[] = "projector";
const char kPolicy[] =
    "default-src 'self'; connect-src 'self' ws: wss:; img-src 'self' data:; style-src 'self' 'unsafe-inline'; "
    "frame-ancestors 'none'";

std::string HttpDate(int64_t seconds) {
    const time_t when = static_cast<time_t>(seconds);
    struct tm utc {};
    gmtime_r(&when, &utc);
    char text[40];
    strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc);
    return text;
}

boost::beast::string_view Trim(boost::beast::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

// True when an If-None-Match list names `etag` (or is "*").
bool Matches(boost::beast::string_view list, const std::string& etag) {
    while (!list.empty()) {
        const size_t comma = list.find(',');
        boost::beast::string_view item = Trim(list.substr(0, comma));
        if (item.starts_with("W/")) {
            item.remove_prefix(2);
        }
        if (item == "*" || item == etag) {
            return true;
        }
        list = comma == boost::beast::string_view::npos ? boost::beast::string_view() : list.substr(comma + 1);
    }
    return false;
}

}  // namespace

bool CWebResponder::AcceptsGzip(boost::beast::string_view acceptEncoding) {
    while (!acceptEncoding.empty()) {
        const size_t comma = acceptEncoding.find(',');
        const boost::beast::string_view item = Trim(acceptEncoding.substr(0, comma));
        const size_t semicolon = item.find(';');
        const boost::beast::string_view coding = Trim(item.substr(0, semicolon));
        if (boost::beast::iequals(coding, "gzip") || coding == "*") {
            boost::beast::string_view parameters =
                semicolon == boost::beast::string_view::npos ? boost::beast::string_view() : item.substr(semicolon + 1);
            parameters = Trim(parameters);
            const bool refused = parameters.starts_with("q=0") &&
                                 parameters.find_first_not_of("0.", 2) == boost::beast::string_view::npos;
            return !refused;
        }
        acceptEncoding =
            comma == boost::beast::string_view::npos ? boost::beast::string_view() : acceptEncoding.substr(comma + 1);
    }
    return false;
}

CWebResponder::TResponse CWebResponder::Error(http::status status, unsigned int version, const char* why) {
    TResponse response(status, version);
    response.set(http::field::server, kServerName);
    response.set(http::field::content_type, "text/plain; charset=utf-8");
    response.set(http::field::cache_control, "no-store");
    if (status == http::status::method_not_allowed) {
        response.set(http::field::allow, "GET, HEAD");
    }
    response.body() = std::string(why) + "\n";
    response.keep_alive(false);
    response.prepare_payload();
    return response;
}

CWebResponder::TResponse CWebResponder::Respond(const TRequest& request, bool hasBody) const {
    const unsigned int version = request.version();
    const http::verb method = request.method();
    if (method != http::verb::get && method != http::verb::head) {
        return Error(http::status::method_not_allowed, version, "Only GET and HEAD are served here");
    }
    if (hasBody) {
        return Error(http::status::payload_too_large, version, "A request to this server carries no body");
    }
    const std::string target(request.target());
    if (target.compare(0, target.find('?'), kJsonRpcTarget) == 0) {
        TResponse response = Error(http::status::upgrade_required, version, "This address takes WebSocket requests");
        response.set(http::field::upgrade, "websocket");
        return response;
    }
    std::string path;
    CStaticFiles::SFile file;
    if (!NWebPath::Resolve(target, path) ||
        !m_files.Find(path, AcceptsGzip(request[http::field::accept_encoding]), file)) {
        TResponse response = Error(http::status::not_found, version, "Not found");
        response.keep_alive(request.keep_alive());
        return response;
    }
    const bool notModified = Matches(request[http::field::if_none_match], file.etag);
    TResponse response(notModified ? http::status::not_modified : http::status::ok, version);
    response.set(http::field::server, kServerName);
    response.set(http::field::etag, file.etag);
    response.set(http::field::last_modified, HttpDate(file.modifiedSeconds));
    response.set(http::field::cache_control, "no-cache");
    response.set(http::field::vary, "Accept-Encoding");
    response.set("X-Content-Type-Options", "nosniff");
    response.set("Content-Security-Policy", kPolicy);
    response.keep_alive(request.keep_alive());
    if (notModified) {
        return response;
    }
    response.set(http::field::content_type, file.contentType);
    if (file.gzip) {
        response.set(http::field::content_encoding, "gzip");
    }
    response.content_length(file.body.size());
    if (method == http::verb::get) {
        response.body() = std::move(file.body);
    }
    return response;
}
