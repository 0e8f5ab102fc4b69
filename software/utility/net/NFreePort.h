#pragma once
// NFreePort: a port number for a server about to be started, when the user asked for
// "any free port" but the number must be known before the server binds it (a child
// process is told it on its command line, a test writes it into a configuration).
//
// Pick takes a port below the kernel's range for outgoing connections, so no connection
// made meanwhile can take it, that is free for TCP and UDP on every address now and was
// not handed out before by this process; after 64 tries it falls back to a port the
// kernel chooses. It can still be taken by another program before it is bound.
//
// Not thread-safe (it remembers what it handed out): call it from one thread.

namespace NFreePort {

// True when both a TCP and a UDP socket can be bound to the port on every address now.
bool IsFree(int port);
// A port as above; 0 only when no socket can be made at all.
int Pick();

}  // namespace NFreePort
