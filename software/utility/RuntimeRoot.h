#pragma once
// NRuntimeRoot: the one process-wide directory under which every fixed path of the
// system is resolved ("/var/run/ui/...", "/var/data/...", "/etc/...", "/dev/ttymxc0",
// "/proc/sys/...", translation files). The default root is "/", so on a projector the
// paths are the real ones; tests and the virtual projector set a private directory.
//
// Thread contract: SetRoot is called once by the host application at start, before any
// other thread exists; after that the root is only read and needs no lock.

#include <string>

namespace NRuntimeRoot {

// Sets the root directory. An empty text means "/". A trailing "/" is dropped.
void SetRoot(const std::string& root);

// The current root, "/" by default.
const std::string& GetRoot();

// Maps an absolute system path into the root: with root "/tmp/r", "/var/data/x" becomes
// "/tmp/r/var/data/x". With root "/" the path is returned unchanged. A relative path is
// returned unchanged (it is not one of the system's fixed paths).
std::string Path(const std::string& absolutePath);

}  // namespace NRuntimeRoot
