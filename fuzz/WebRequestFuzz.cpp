// Arbitrary bytes as the head of a request to the web server: parsed by the HTTP parser
// with the server's head limit and answered by the server's responder over a small page
// folder, with a file outside it and a symbolic link inside.
//
// Checks: the answer is one of the statuses the server gives (200, 304, 404, 405, 413,
// 426); a 200 carries one of the page's own files and nothing else (never the outside
// file's bytes); a target the path rules accept maps to a relative path without an empty,
// "." or ".." segment, and mapping that path again gives the same path. A breach aborts.

#include <sys/stat.h>
#include <unistd.h>

#include <boost/beast/http.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "CStaticFiles.h"
#include "CWebResponder.h"
#include "NWebPath.h"

namespace http = boost::beast::http;

namespace {

const char kOutside[] = "outside the page's folder";

std::string MakeFolder() {
    char dir[] = "/tmp/web-request-fuzz.XXXXXX";
    if (!mkdtemp(dir)) {
        abort();
    }
    const std::string root = dir;
    mkdir((root + "/www").c_str(), 0755);
    mkdir((root + "/www/assets").c_str(), 0755);
    std::ofstream(root + "/secret") << kOutside;
    std::ofstream(root + "/www/index.html") << "<!doctype html>";
    std::ofstream(root + "/www/assets/app.js") << "let a;";
    std::ofstream(root + "/www/assets/app.js.gz") << "gz";
    if (symlink((root + "/secret").c_str(), (root + "/www/link.txt").c_str()) != 0) {
        abort();
    }
    return root + "/www";
}

void CheckPath(const std::string& target) {
    std::string path;
    if (!NWebPath::Resolve(target, path)) {
        return;
    }
    std::string::size_type start = 0;
    while (true) {
        const std::string::size_type slash = path.find('/', start);
        const std::string segment = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (segment.empty() || segment == "." || segment == "..") {
            abort();
        }
        if (slash == std::string::npos) {
            break;
        }
        start = slash + 1;
    }
    std::string again;
    if (path.find('%') == std::string::npos && path.find_first_of("?#") == std::string::npos &&
        (!NWebPath::Resolve("/" + path, again) || again != path)) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string folder = MakeFolder();
    static const CStaticFiles files(folder);
    static const CWebResponder responder(files);

    http::request_parser<http::empty_body> parser;
    parser.header_limit(8 * 1024);
    parser.eager(false);
    boost::beast::error_code error;
    parser.put(boost::asio::buffer(data, size), error);
    if (error || !parser.is_header_done()) {
        return 0;
    }
    const auto& request = parser.get();
    CheckPath(std::string(request.target()));
    const bool hasBody = parser.chunked() || (parser.content_length() && *parser.content_length() > 0);
    const CWebResponder::TResponse response = responder.Respond(request, hasBody);
    switch (response.result_int()) {
        case 200:
            if (response.body().find(kOutside) != std::string::npos ||
                (response.body() != "<!doctype html>" && response.body() != "let a;" && response.body() != "gz" &&
                 request.method() != http::verb::head)) {
                abort();
            }
            break;
        case 304:
        case 404:
        case 405:
        case 413:
        case 426:
            break;
        default:
            abort();
    }
    return 0;
}
