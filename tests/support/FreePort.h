#pragma once
// FreePort: a port for a test's servers that no socket on this host uses right now, for
// TCP or UDP, and that no outgoing connection of a test running beside it can take before
// the server binds it (NFreePort).

#include "net/NFreePort.h"

inline unsigned short FreePort() { return static_cast<unsigned short>(NFreePort::Pick()); }
