#pragma once
// CCepParser: cuts light-source link messages out of received bytes. The bytes wait in
// a buffer of at most bufferSize bytes; addData takes what fits and says how much.
// getCepMsg finds the start marker (a "{" with its three following marker bytes in the
// buffer), drops the bytes before it, and decodes the frame there without a CRC check:
// on success the frame's bytes go and the message is returned; a frame that may still
// complete (its header, its block length or its block not all here yet) waits for more
// bytes, and null is returned.
//
// A frame that can never decode is skipped past its start marker, logged as a warning,
// and the search goes on behind it: its header is all here and bad (a version other than
// 1 or 2, a block length that is no BER length), its block is all here and a property
// runs past it, or it is longer than the buffer can ever hold. Otherwise one bad frame
// would hold every later one behind it until the buffer is full.
//
// As the link has always behaved: bytes without a start marker are never dropped, so
// garbage that fills the buffer stops addData taking more until the owner resets the
// parser (Clear).
//
// Thread contract: addData and getCepMsg may be called from different threads (a reader
// and a consumer); both take the parser's CMutex.

#include <cstdint>
#include <memory>
#include <vector>

#include "CCepMessage.h"
#include "CMutex.h"
#include "log/ILog.h"

namespace LibFusion {

class CCepParser {
public:
    // log (may be null: skipped frames then go unreported) outlives the parser.
    explicit CCepParser(uint32_t bufferSize, ILog* log = nullptr);

    uint32_t addData(const uint8_t* bytes, uint32_t count);
    uint32_t addData(const char* bytes, uint32_t count);
    // The next complete message, or null.
    std::unique_ptr<CCepMessage> getCepMsg();
    // Drops every byte held.
    void Clear();
    uint32_t GetSize();

    // The index of the first start marker whose three following bytes are in buffer.
    static bool findMsg(const std::vector<uint8_t>& buffer, uint32_t& index);

private:
    uint32_t m_capacity;
    ILog* m_log;
    std::vector<uint8_t> m_buffer;
    CMutex m_mutex;
};

}  // namespace LibFusion
