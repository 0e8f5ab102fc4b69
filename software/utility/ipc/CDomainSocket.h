#pragma once
// CDomainSocket: one Unix-domain datagram socket with its own address.
//
// Lifetime: the socket file exists from Create (which first removes any stale file of
// the same path) until the owning object is destroyed, which closes the descriptor and
// unlinks the file. Ownership of the descriptor moves with the object; it cannot be
// copied, because two owners would close and unlink the same socket twice.
//
// An object without a descriptor serves as a plain address: RecvFrom fills one with the
// sender's path (and, on a socket with credentials enabled, the sender's pid, uid and
// gid as the kernel vouches for them), and SendTo can send to it.
//
// Receiving never takes descriptors from a sender: any passed along with a datagram
// (SCM_RIGHTS) are closed at once, or, on a socket without credentials enabled, never
// installed by the kernel, so no sender can fill the receiver's table.
//
// Paths: up to 107 characters (the whole of sun_path but its terminator), so that the
// runtime root can lengthen the system's socket paths; a longer path throws. Callers pass
// paths already resolved through the runtime root.
//
// Thread contract: one thread uses a socket at a time, except that SendTo may be called
// from several threads on an unbound socket (each call is one datagram).
// Errors throw CException with the texts given at each method.

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

struct SDomainDatagram;

class CDomainSocket {
public:
    static constexpr size_t kMaxPathLength = sizeof(sockaddr_un::sun_path) - 1;

    CDomainSocket();
    explicit CDomainSocket(const char* path);
    CDomainSocket(CDomainSocket&& other) noexcept;
    CDomainSocket& operator=(CDomainSocket&& other) noexcept;
    CDomainSocket(const CDomainSocket&) = delete;
    CDomainSocket& operator=(const CDomainSocket&) = delete;
    ~CDomainSocket();

    // Opens a datagram socket and binds it at path after unlinking any stale file there;
    // an empty path leaves it unbound. Throws "Socket failed on %s" or
    // "Socket bind failed on %s" (with errno), or "Socket path too long: %s".
    void Create(const char* path);

    // Asks the kernel to attach the sender's credentials to every datagram (SO_PASSCRED);
    // senders need do nothing. Throws "Socket credentials failed on %s" (with errno).
    void EnableCredentials();
    // The credentials of the sender whose datagram filled this address; false when none
    // came with it (a socket without credentials enabled).
    bool GetCredentials(ucred& credentials) const;

    // Blocking receive; fills `from` (when given) with the sender's address. Returns the
    // byte count (0 when a receive time-out set by RecvFromTimed ran out).
    // Throws "Uninitialized socket" or "Socket recvfrom failed on %s".
    int RecvFrom(unsigned char* buffer, int length, int flags, CDomainSocket* from);
    // The same without blocking: 0 when nothing is waiting.
    int RecvFromNoBlock(unsigned char* buffer, int length, int flags, CDomainSocket* from);
    // Blocking receive that gives up after timeoutMs (0: does not block): the byte count,
    // or -1 when nothing arrived in time. One system call when the time-out is the same
    // as on the previous call, which is what keeps a request-reply round trip cheap.
    int RecvFromTimed(unsigned char* buffer, int length, CDomainSocket* from, unsigned int timeoutMs);
    // Receives, with one system call and without waiting, the datagrams that are queued, at
    // most count (up to kMaxBatch) of them, into slots[0..n) with their senders; returns n,
    // 0 when none was waiting. Throws as RecvFrom.
    static constexpr int kMaxBatch = 8;
    int RecvBatchNoBlock(SDomainDatagram* slots, int count);

    // Sends one datagram. Returns the byte count sent. Throws "Uninitialized socket",
    // "Socket path too long: %s" or "Socket sendto failed from %s to %s" (with errno).
    int SendTo(const unsigned char* data, int length, const char* path, int flags);
    int SendTo(const unsigned char* data, int length, const CDomainSocket& to, int flags);
    // Sends the same datagram to *paths[0..count) in order, up to kMaxSendBatch of them in
    // one system call (sendmmsg): a fan-out to many receivers costs a fraction of one
    // sendto each. Returns how many from the front were sent; fewer than count means the
    // next one was refused (a full or missing receiver, an empty path or one too long),
    // and the caller learns why by sending that one alone with SendTo. Throws
    // "Uninitialized socket".
    static constexpr int kMaxSendBatch = 32;
    int SendToEach(const unsigned char* data, int length, const std::string* const* paths, int count, int flags);

    // Connects the socket to path, so that sends need no address and a poll for writing
    // waits until the peer's receive queue has room. Throws "Socket connect failed from
    // %s to %s" (with errno) or "Uninitialized socket".
    void Connect(const char* path);

    // Sets the address without a socket (the path is cut at 107 characters).
    void SetSockAddr(const char* path);

    int GetDescriptor() const { return m_fd; }
    std::string GetPath() const { return m_address.sun_path; }
    // The same without a copy, valid while this object is and its address unchanged.
    const char* GetPathCStr() const { return m_address.sun_path; }

    // Writes the system-wide datagram queue length to "/proc/sys/net/unix/max_dgram_qlen"
    // under the runtime root. Throws CException when the file cannot be written.
    static void SetQueueDepth(unsigned int depth);

private:
    static sockaddr_un MakeAddress(const char* path);
    // Takes the credentials out of a received header and closes any descriptors it carries.
    static void TakeControl(msghdr& header, ucred& credentials, bool& hasCredentials);
    // Makes `from` the address of a datagram's sender, of which the kernel wrote `length` bytes.
    static void SetSender(sockaddr_un& sender, socklen_t length, const ucred& credentials, bool hasCredentials,
                          CDomainSocket& from);
    // One receive; -1 when it would block or its time-out ran out.
    int Receive(unsigned char* buffer, int length, int flags, CDomainSocket* from);
    void Close();

    int m_fd;
    sockaddr_un m_address;
    ucred m_credentials;
    bool m_hasCredentials;
    // EnableCredentials was called: receives ask for control data (recvmsg), which
    // plain receives skip.
    bool m_passesCredentials;
    // The receive time-out last set on the descriptor; ~0u when none was set.
    unsigned int m_receiveTimeoutMs;
};

// One datagram of a batch: the caller's buffer of `capacity` bytes, the byte count
// received into it (a longer datagram is cut) and who sent it.
struct SDomainDatagram {
    unsigned char* buffer = nullptr;
    int capacity = 0;
    int length = 0;
    CDomainSocket from;
};
