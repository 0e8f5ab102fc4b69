#pragma once
// NZipArchive: unpacks zip archives (minizip) such as the DMD sequence archives.
//
// Every entry is written under the target directory by its name, created with any
// folders it names; each file is written to a temporary file and renamed, so a cut-off
// unpack never leaves a half-written file under the final name. An entry whose name is
// absolute or climbs out of the directory ("..") refuses the archive before anything is
// written; so does an entry larger than kMaxEntryBytes once unpacked.
//
// Paths are absolute (callers resolve system paths through the runtime root).
// Thread contract: free functions without state. Errors throw CException: "Unable to open
// archive %s", "Unsafe entry %s in %s", "Entry %s in %s is too large", "Unable to unpack
// %s from %s", "Unable to write %s".

#include <string>
#include <vector>

namespace NZipArchive {

constexpr size_t kMaxEntryBytes = 64 * 1024 * 1024;

// The names of the files written, in archive order.
std::vector<std::string> ExtractAll(const std::string& archive, const std::string& directory);

// Writes an archive of (name, contents) entries, deflated (tools and tests): to a
// temporary file first, renamed over `archive` once complete.
void Create(const std::string& archive, const std::vector<std::pair<std::string, std::string>>& entries);

}  // namespace NZipArchive
