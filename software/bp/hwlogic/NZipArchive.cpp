#include "NZipArchive.h"

#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "CException.h"
#include "NFileUtil.h"

namespace NZipArchive {

namespace {

struct SUnzipCloser {
    void operator()(void* file) const { unzClose(file); }
};

bool IsSafeName(const std::string& name) {
    if (name.empty() || name[0] == '/' || name.find('\\') != std::string::npos) {
        return false;
    }
    for (const auto& part : std::filesystem::path(name)) {
        if (part == "..") {
            return false;
        }
    }
    return true;
}

std::string CurrentName(unzFile zip, unz_file_info& info) {
    char name[1024];
    if (unzGetCurrentFileInfo(zip, &info, name, sizeof name, nullptr, 0, nullptr, 0) != UNZ_OK) {
        return "";
    }
    return name;
}

}  // namespace

std::vector<std::string> ExtractAll(const std::string& archive, const std::string& directory) {
    std::unique_ptr<void, SUnzipCloser> zip(unzOpen(archive.c_str()));
    if (!zip) {
        THROW_EXCEPTION("Unable to open archive %s", archive.c_str());
    }
    // Every name is checked before anything is written.
    unz_file_info info;
    for (int status = unzGoToFirstFile(zip.get()); status == UNZ_OK; status = unzGoToNextFile(zip.get())) {
        const std::string name = CurrentName(zip.get(), info);
        if (!IsSafeName(name)) {
            THROW_EXCEPTION("Unsafe entry %s in %s", name.c_str(), archive.c_str());
        }
        if (info.uncompressed_size > kMaxEntryBytes) {
            THROW_EXCEPTION("Entry %s in %s is too large", name.c_str(), archive.c_str());
        }
    }
    std::vector<std::string> written;
    for (int status = unzGoToFirstFile(zip.get()); status == UNZ_OK; status = unzGoToNextFile(zip.get())) {
        const std::string name = CurrentName(zip.get(), info);
        const std::filesystem::path target = std::filesystem::path(directory) / name;
        std::error_code ignored;
        if (name.back() == '/') {
            std::filesystem::create_directories(target, ignored);
            continue;
        }
        std::filesystem::create_directories(target.parent_path(), ignored);
        std::string contents(info.uncompressed_size, '\0');
        if (unzOpenCurrentFile(zip.get()) != UNZ_OK) {
            THROW_EXCEPTION("Unable to unpack %s from %s", name.c_str(), archive.c_str());
        }
        const int read = contents.empty() ? 0 : unzReadCurrentFile(zip.get(), contents.data(),
                                                                   static_cast<unsigned>(contents.size()));
        const int closed = unzCloseCurrentFile(zip.get());  // checks the CRC
        if (read != static_cast<int>(contents.size()) || closed != UNZ_OK) {
            THROW_EXCEPTION("Unable to unpack %s from %s", name.c_str(), archive.c_str());
        }
        if (!NFileUtil::WriteFileAtomically(target.string(), contents, 0644)) {
            THROW_ERRNO_EXCEPTION("Unable to write %s", target.c_str());
        }
        written.push_back(name);
    }
    return written;
}

void Create(const std::string& archive, const std::vector<std::pair<std::string, std::string>>& entries) {
    const std::string temporary = NFileUtil::TemporaryPathFor(archive);
    zipFile zip = zipOpen(temporary.c_str(), APPEND_STATUS_CREATE);
    if (!zip) {
        THROW_EXCEPTION("Unable to write %s", archive.c_str());
    }
    bool ok = true;
    for (const auto& entry : entries) {
        zip_fileinfo info{};
        info.tmz_date.tm_mday = 1;  // the archive's fixed date, 1980-01-01: builds are reproducible
        ok = ok && zipOpenNewFileInZip(zip, entry.first.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                                       Z_DEFAULT_COMPRESSION) == ZIP_OK;
        ok = ok && zipWriteInFileInZip(zip, entry.second.data(), static_cast<unsigned>(entry.second.size())) == ZIP_OK;
        ok = ok && zipCloseFileInZip(zip) == ZIP_OK;
    }
    ok = zipClose(zip, nullptr) == ZIP_OK && ok;
    if (!ok || rename(temporary.c_str(), archive.c_str()) != 0) {
        std::filesystem::remove(temporary);
        THROW_EXCEPTION("Unable to write %s", archive.c_str());
    }
}

}  // namespace NZipArchive
