#pragma once
// CStaticFiles: the page's files as the web server hands them out: looked up under one
// folder, never outside it, with their type and validator.
//
// A path (from NWebPath::Resolve) is opened one segment at a time below the folder with
// O_NOFOLLOW, so a symbolic link anywhere below the folder is refused (not found) even
// when it points back inside; only regular files are served (a folder is not found: no
// listing). When the client accepts gzip and "<file>.gz" sits beside the file (the page's
// build puts one beside every text file), that one is handed out with the file's type.
// Files above kMaxFileBytes are not served.
//
// The validator (ETag) is made of the served file's size and modification time, so a
// rebuilt page gets new tags without a restart. Content types come from the file name's
// extension; an unknown one is "application/octet-stream".
//
// Thread contract: const after construction; Find may be called from any thread.

#include <cstdint>
#include <string>

#include "WebApi.h"

class PROJ_WEB_API CStaticFiles {
public:
    static constexpr uint32_t kMaxFileBytes = 16 * 1024 * 1024;

    struct SFile {
        std::string body;
        std::string contentType;
        std::string etag;          // with its quotes
        bool gzip = false;         // body is the ".gz" copy
        int64_t modifiedSeconds = 0;
    };

    explicit CStaticFiles(std::string folder) : m_folder(std::move(folder)) {}

    // False when there is no such regular file (or it may not be served).
    bool Find(const std::string& relativePath, bool acceptsGzip, SFile& file) const;
    const std::string& GetFolder() const { return m_folder; }

    static const char* ContentType(const std::string& name);

private:
    bool Read(const std::string& relativePath, SFile& file) const;

    std::string m_folder;
};
