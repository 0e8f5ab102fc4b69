#pragma once
// NWebPath: turns the target of an HTTP request into a path relative to the page's
// folder, or refuses it. The rules keep every answer inside that folder whatever a client
// sends:
//   - the query ("?...") and fragment are dropped; the rest must start with "/";
//   - percent escapes are decoded once; a malformed escape, an encoded "." or "/" (a dot
//     or a separator has no business being escaped in a page's path), a NUL, a backslash
//     or a control byte refuses the target;
//   - empty segments ("//") are skipped; a segment "." or ".." refuses it, and so does a
//     segment starting with "." (hidden files are never served);
//   - "/" and a path ending in "/" mean the folder's "index.html".
// Symbolic links are refused where the file is opened (CStaticFiles), not here.
//
// Pure functions; any thread.

#include <string>

#include "WebApi.h"

namespace NWebPath {

constexpr size_t kMaxTargetBytes = 2048;

// The relative path ("index.html", "assets/app.js") in `path`; false (path untouched) for
// a refused target.
PROJ_WEB_API bool Resolve(const std::string& target, std::string& path);

}  // namespace NWebPath
