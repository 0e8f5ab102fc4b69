#pragma once
// NModule: opens a module of this project (a shared object loaded with dlopen rather than
// linked) from the folder of the library that asks for it, so that the build tree and an
// installation work alike. Modules hold what pulls in large libraries a process may never
// need (Qt's translator, OpenSSL): a process maps them only when it first uses them.
//
// A module is opened once per process (dlopen counts further opens of the same path) and
// never unloaded. Any thread; the caller keeps what it looked up.

namespace NModule {

// The address of the symbol `entry` in the module file `fileName`, looked up in the folder
// of the shared object that holds `anchor` (any function of the calling library; the
// plain file name, searched as dlopen does, when that folder cannot be told).
// Throws CException "Unable to load <what>: ..." when the module does not open or lacks
// the entry.
void* LoadEntry(const void* anchor, const char* fileName, const char* entry, const char* what);

}  // namespace NModule
