// Arbitrary bytes into the light-source link: the parser (fed in two pieces) and the
// message decoder must never read outside the bytes; a frame that decodes encodes again
// (same version, the CRC as received) to bytes that decode to the same message, and with a
// fresh CRC to bytes that pass the CRC check.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "CCepMessage.h"
#include "CCepParser.h"

using namespace LibFusion;

namespace {

bool Same(const CCepMessage& a, const CCepMessage& b, bool withCrc = true) {
    return a.getMajorVersion() == b.getMajorVersion() && a.getMinorVersion() == b.getMinorVersion() &&
           a.getCommandCode() == b.getCommandCode() && a.getObjectID() == b.getObjectID() &&
           a.getErrorCode() == b.getErrorCode() && a.getDestinationID() == b.getDestinationID() &&
           a.getSourceID() == b.getSourceID() && a.getSecurityID() == b.getSecurityID() &&
           (!withCrc || a.getCrc() == b.getCrc()) && a.getSequenceNumber() == b.getSequenceNumber() &&
           a.getProperties() == b.getProperties();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CCepParser parser(4096);
    const uint32_t half = static_cast<uint32_t>(size / 2);
    parser.addData(data, half);
    while (parser.getCepMsg()) {
    }
    parser.addData(data + half, static_cast<uint32_t>(size - half));
    while (parser.getCepMsg()) {
    }

    CCepMessage first;
    uint32_t consumed = 0;
    const std::vector<uint8_t> copy(data, data + size);
    if (!first.fromBytes(copy.data(), static_cast<uint32_t>(copy.size()), consumed, true)) {
        return 0;
    }
    // Encoded with the CRC it came with, it decodes to the same message (padding bytes of
    // the header are not part of a message, so the CRC is not checked on this trip).
    const std::vector<uint8_t> again = first.toBytes(first.getDecodedVersion(), false);
    CCepMessage second;
    if (!second.fromBytes(again.data(), static_cast<uint32_t>(again.size()), consumed, false) || !Same(first, second)) {
        abort();
    }
    // Encoded with a fresh CRC, it passes the check and still says the same.
    const std::vector<uint8_t> fresh = second.toBytes(second.getDecodedVersion(), true);
    CCepMessage third;
    if (!third.fromBytes(fresh.data(), static_cast<uint32_t>(fresh.size()), consumed, true) || !Same(second, third, false)) {
        abort();
    }
    return 0;
}
