#pragma once
// CNulFramer: splits a byte stream into messages each ended by one NUL byte, the framing
// of the JSON-RPC TCP transport in both directions. Bytes after the last NUL are kept
// for the next Add, up to a cap (maxPending, kDefaultMaxPending unless given): a stream
// that goes on without a NUL beyond the cap is refused (Add returns false and the caller
// closes the connection), so no peer can grow the buffer without bound. The cap counts
// the unterminated tail only; a message completed within one Add may be longer.
//
// Thread contract: one thread per framer.

#include <cstddef>
#include <deque>
#include <string>

class CNulFramer {
public:
    static constexpr size_t kDefaultMaxPending = 1024 * 1024;

    explicit CNulFramer(size_t maxPending = kDefaultMaxPending) : m_maxPending(maxPending) {}

    // Appends received bytes and moves every completed message (without its NUL) to
    // `messages`. False when the unterminated tail passes the cap (the tail is dropped).
    bool Add(const char* data, size_t length, std::deque<std::string>& messages);
    // The unterminated tail held now.
    size_t GetPendingSize() const { return m_pending.size(); }
    void Clear() { m_pending.clear(); }

private:
    size_t m_maxPending;
    std::string m_pending;
};
