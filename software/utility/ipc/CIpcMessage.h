#pragma once
// CIpcMessage: the one binary message exchanged between the control-plane processes,
// carried as a single Unix-domain datagram.
//
// Wire format (host byte order, no padding):
//   header, 24 bytes: magic 0x13FE (u16), flags (u16), type (u32), code (u32: first of
//   its three characters in bits 23..16), subcode (u32: first of four characters in bits
//   31..24, 0 = none), sequence (u32), argument count (u16), total size (u16);
//   then one record per argument in ascending parameter id order: flags (u8),
//   modifier (u8), parameter id (u16), text with its terminating NUL.
// Every argument is held as text; a number argument is its decimal text flagged 0x40
// with its digit count (at least 3) in the low five bits.
//
// The header argument count and total size are refreshed only by SerializeMessage and
// DeserializeMessage; GetMsgAsString renders as many arguments as that count says.
//
// Thread contract: a message is used by one thread at a time. Model errors (bad code,
// bad subcode, too many arguments) throw CException.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Carried unchanged between processes; every message this system builds has type 0.
enum EMessageType : uint32_t {
    MSG_TYPE_STANDARD = 0,
};

// Message flag bits (header offset 2).
enum EMessageFlags : uint16_t {
    MSG_FLAG_REPLY = 0x01,          // an answer; rendered "!"
    MSG_FLAG_REQUEST = 0x02,        // a request that may be answered by several replies; rendered "?"
    MSG_FLAG_MORE_FOLLOWS = 0x04,   // another reply to the same request follows
    MSG_FLAG_REPLY_WANTED = 0x10,   // the receiver must answer
    // Free for the sender's own bookkeeping. Receivers never interpret it, and MakeReply
    // clears it, so a reply never carries back what the sender meant by it.
    MSG_FLAG_SENDER_PRIVATE = 0x20,
};

// Argument flag byte.
enum EParmFlags : uint8_t {
    PARM_TEXT = 0x00,             // a text argument has exactly these flags
    PARM_DIGIT_MASK = 0x1F,       // numbers: digit count, at least 3
    PARM_CHAR_DELIMITER = 0x20,   // the value is to be shown between character delimiters
    PARM_NUMBER = 0x40,
};

struct SMessageArgs {
    uint8_t flags = PARM_TEXT;
    uint8_t modifier = 0;
    std::string text;
};

class CIpcMessage {
public:
    static constexpr uint16_t kMagic = 0x13FE;
    static constexpr unsigned kHeaderSize = 24;
    static constexpr unsigned kMaxNumParms = 128;
    // A serialised message must be smaller than this; receive buffers have this size.
    static constexpr unsigned kMaxMessageSize = 4096;
    // Well-known parameter ids of an error reply.
    static constexpr unsigned short kErrorCodeParm = 220;
    static constexpr unsigned short kErrorTextParm = 221;

    explicit CIpcMessage(EMessageType type = MSG_TYPE_STANDARD);
    // Deep copies (header, arguments, addresses); the copy's cursor is at its first argument.
    CIpcMessage(const CIpcMessage& other);
    CIpcMessage& operator=(const CIpcMessage& other);
    // Take everything, the wire buffer included, without copying; `other` is left as a
    // new message of its type. Replies queued in a list are moved there, not copied.
    CIpcMessage(CIpcMessage&& other) noexcept;
    CIpcMessage& operator=(CIpcMessage&& other) noexcept;
    virtual ~CIpcMessage();
    // Makes this what a new message of its type is, keeping the storage its arguments,
    // reply address and wire form have grown: one object reused from message to message
    // allocates nothing once warmed up.
    void Reset();

    // Exactly three characters, else throws "Invalid code %s".
    void SetCode(const std::string& code);
    std::string GetCode() const;
    // GetCode() == code without making the text: compares the packed code. Inline, so
    // that a literal's length and packing are worked out when the caller is compiled.
    bool IsCode(std::string_view code) const {
        // A received header may carry a fourth byte above the code, which GetCode leaves out.
        return code.size() == 3 && (m_header.code & 0xFFFFFFu) == PackCode(code);
    }
    // A code or subcode as the header carries it: its characters big-endian in one word.
    static constexpr uint32_t PackCode(std::string_view text) {
        uint32_t packed = 0;
        for (const char c : text) {
            packed = (packed << 8) | static_cast<unsigned char>(c);
        }
        return packed;
    }
    // Exactly four characters, or empty for none; else throws "Invalid subcode %s".
    void SetSubCode(const std::string& subcode);
    // The four characters, or "" when there is no subcode.
    std::string GetSubCode() const;

    uint16_t GetFlags() const { return m_header.flags; }
    void SetFlags(uint16_t flags) { m_header.flags = flags; }
    bool HasFlag(EMessageFlags flag) const { return (m_header.flags & flag) != 0; }
    EMessageType GetType() const { return static_cast<EMessageType>(m_header.type); }
    uint32_t GetSequence() const { return m_header.sequence; }
    void SetSequence(uint32_t sequence) { m_header.sequence = sequence; }
    // The header's argument count, as last serialised or deserialised.
    uint16_t GetArgCount() const { return m_header.argCount; }
    uint16_t GetTotalSize() const { return m_header.totalSize; }
    // The size SerializeMessage would give now, header included.
    size_t GetSerializedSize() const;
    // The number of arguments actually held.
    unsigned GetNumArgs() const { return static_cast<unsigned>(m_args.size()); }

    // Not on the wire: station addresses used by the ASCII front-end, and the socket path
    // of the process that sent this message (filled on receipt, used to answer it).
    uint16_t GetSourceAddress() const { return m_sourceAddress; }
    void SetSourceAddress(uint16_t address) { m_sourceAddress = address; }
    uint16_t GetDestinationAddress() const { return m_destinationAddress; }
    void SetDestinationAddress(uint16_t address) { m_destinationAddress = address; }
    const std::string& GetReplyAddress() const { return m_replyAddress; }
    void SetReplyAddress(const std::string& address) { m_replyAddress = address; }

    // Stores the decimal text of value. Flags 0 means "compute": 0x40 | digit count
    // (sign not counted), with a digit count of at least 3.
    // Both AddArg forms replace an existing id in place, throw "Unable to add new message
    // parameter.  MaxNumParms exceeded (<id>)" when 128 arguments are already held (even
    // when the id exists), and return the cursor to the first argument.
    void AddArg(unsigned short id, int value, EParmFlags flags = PARM_TEXT, unsigned char modifier = 0);
    // A text argument (flags 0). The wire cannot carry a NUL inside a text, so a text
    // holding one throws CException.
    void AddArg(unsigned short id, const std::string& text, unsigned char modifier = 0);

    bool GetArg(unsigned short id, std::string& text) const;
    // False when absent or a text argument (value untouched). Otherwise converts with
    // base-10 strtol, stores the result even when conversion stopped early (clamped to
    // the int range), and is true only when the whole, non-empty text was a number in range.
    bool GetArg(unsigned short id, int& value) const;
    bool GetModifier(unsigned short id, unsigned char& modifier) const;
    bool GetArgFlags(unsigned short id, EParmFlags& flags) const;
    bool IsNumberArg(unsigned short id) const;
    bool IsTextArg(unsigned short id) const;
    void SetCharDelimiter(unsigned short id);

    // Walk the arguments in ascending id order; false at the end.
    bool GetFirstArg(unsigned short& id, std::string& text);
    bool GetNextArg(unsigned short& id, std::string& text);
    // The arguments in ascending id order, for a walk of a const message that copies no text.
    using Arg = std::pair<unsigned short, SMessageArgs>;
    const std::vector<Arg>& GetArgs() const { return m_args; }

    void RemoveArg(unsigned short id);
    void ClearArgs();

    // Turns this message into its reply: clears the arguments, moves the source address
    // into the destination, takes `address` as the source, clears the request,
    // reply-wanted and sender-private flags and sets the reply flag. Code, subcode, type,
    // sequence and reply address stay, so the reply travels back under the request's
    // sequence to its sender.
    void MakeReply(unsigned short address);
    // A new message that is this one's reply, as a copy would be after MakeReply(0), without
    // copying the arguments MakeReply would clear.
    CIpcMessage EmptyReply() const;
    // Becomes request.EmptyReply() in this message's own storage (see Reset).
    void AssignEmptyReply(const CIpcMessage& request);

    // Copies flags, type, code, subcode, sequence, argument count, total size and the reply
    // address; not the arguments.
    void CopyHeader(const CIpcMessage& other);

    // Builds the wire form into the message's own buffer and points `out` at it; returns
    // the size. When the message would be kMaxMessageSize bytes or more, nothing is
    // built: `out` receives the previous buffer (possibly null) and the too-large size is
    // returned, so every sender must refuse a size of kMaxMessageSize or more.
    int SerializeMessage(unsigned char*& out);

    // Reads a received datagram of `length` bytes. A datagram that is not complete
    // (see IsCompleteMessage) is dropped: false, and the message is left unchanged.
    // Otherwise the arguments are replaced by those received (a repeated id replaces the
    // earlier one), `from` becomes the reply address, the station addresses (which the wire
    // does not carry) become 0, and the result is true.
    bool DeserializeMessage(const unsigned char* buffer, unsigned int length, const char* from);

    // True when the datagram is one whole message: at least a header, magic 0x13FE, a
    // total size equal to `length`, and exactly as many well-formed records (each with its
    // text's NUL inside the datagram) as the header's argument count, ending at `length`.
    static bool IsCompleteMessage(const unsigned char* buffer, unsigned int length);

    // One-line rendering for logs: "dest src CODE[+SUBC][?|!] arg0 arg1 ...".
    static std::string GetMsgAsString(const CIpcMessage& message);

private:
    // Held in exactly the order and widths of the wire header.
    struct SHeader {
        uint16_t magic;
        uint16_t flags;
        uint32_t type;
        uint32_t code;
        uint32_t subcode;
        uint32_t sequence;
        uint16_t argCount;
        uint16_t totalSize;
    };
    static_assert(sizeof(SHeader) == kHeaderSize, "the header is copied to and from the wire as it is");

    void Swap(CIpcMessage& other) noexcept;

    void CheckRoomFor(unsigned short id) const;
    const SMessageArgs* Find(unsigned short id) const;
    // The argument with this id, made empty at its place in the order when there is none.
    SMessageArgs& Slot(unsigned short id);

    SHeader m_header;
    // Sorted by id. A vector rather than a map: a message holds a handful of arguments,
    // and a received message refills the same vector (short texts stay in the strings'
    // own storage), so receiving and answering allocate nothing once warmed up.
    std::vector<Arg> m_args;
    size_t m_cursor;
    uint16_t m_sourceAddress;
    uint16_t m_destinationAddress;
    // The wire form, grown to the largest message built so far and reused after that.
    std::unique_ptr<unsigned char[]> m_buffer;
    size_t m_bufferSize;
    std::string m_replyAddress;
};
