#pragma once
// NFileUtil: whole-file reads and the one way this system replaces a stored file.
//
// WriteFileAtomically never leaves a torn file: the new contents go to ".<name>.tmp" in
// the same directory (created with `mode`, never following a link), are flushed to the
// disk (fsync), and only then renamed over the old file; last, the directory is flushed so
// the rename itself is durable. Power lost at any instant leaves the old file or the new
// one whole; a temporary file left behind by a power cut is simply replaced next time.
//
// Thread contract: plain functions; concurrent writers of the same path must be
// serialised by their owner (each stored file of this system has one owner).

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace NFileUtil {

enum class EReadResult { READ, MISSING, FAILED };

// Reads a whole regular file of at most maxBytes. MISSING only when there is no such
// file; FAILED, with the reason in `error`, for anything else that keeps it from being
// read (a directory or device, more than maxBytes: "file too large", a read error).
// `contents` changes only on READ.
EReadResult ReadFile(const std::string& path, size_t maxBytes, std::string& contents, std::string& error);

// Replaces `path` by `contents` as described above. False, with errno set, when any step
// up to the rename fails: the old file is then untouched and no temporary file is left.
// A failure to flush the directory after the rename is not reported (the new file is in
// place and cannot be taken back).
bool WriteFileAtomically(const std::string& path, const std::string& contents, mode_t mode);

// Copies `from` to `to` (written atomically, its folder created) when `to` does not exist
// yet: true when it copied. False, changing nothing, when `to` exists or `from` cannot be
// read whole within maxBytes.
bool InstallIfMissing(const std::string& from, const std::string& to, size_t maxBytes);

// Flushes the directory holding `path`, so that a rename or unlink there is durable.
void SyncDirectoryOf(const std::string& path);

// The directory of the running executable ("/proc/self/exe" without its last part); empty
// when it cannot be read.
std::string GetExecutableDir();

// The temporary name WriteFileAtomically uses for `path`.
std::string TemporaryPathFor(const std::string& path);

}  // namespace NFileUtil
