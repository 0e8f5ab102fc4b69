#include "CIpcMessage.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "CException.h"

namespace {

// A new message's code and subcode.
constexpr uint32_t kNoCode = CIpcMessage::PackCode("!!!");
constexpr uint32_t kNoSubCode = CIpcMessage::PackCode("!!!!");

std::string UnpackCode(uint32_t packed, unsigned length) {
    std::string text(length, '\0');
    for (unsigned i = 0; i < length; ++i) {
        text[length - 1 - i] = static_cast<char>((packed >> (8 * i)) & 0xFF);
    }
    return text;
}

bool IdBelow(const std::pair<unsigned short, SMessageArgs>& arg, unsigned short id) { return arg.first < id; }

// The argument with this id in a sorted argument list, or null.
template <class Args>
auto Matching(Args& args, unsigned short id) -> decltype(&args.front()) {
    const auto it = std::lower_bound(args.begin(), args.end(), id, IdBelow);
    return it == args.end() || it->first != id ? nullptr : &*it;
}

uint16_t ReadU16(const unsigned char* at) {
    uint16_t value;
    memcpy(&value, at, sizeof value);
    return value;
}

}  // namespace

CIpcMessage::CIpcMessage(EMessageType type)
    : m_header{kMagic, 0, static_cast<uint32_t>(type), kNoCode, kNoSubCode, 0, 0, 0},
      m_cursor(0), m_sourceAddress(0), m_destinationAddress(0), m_bufferSize(0) {}

CIpcMessage::CIpcMessage(const CIpcMessage& other)
    : m_header(other.m_header), m_args(other.m_args), m_cursor(0),
      m_sourceAddress(other.m_sourceAddress), m_destinationAddress(other.m_destinationAddress),
      m_bufferSize(0), m_replyAddress(other.m_replyAddress) {}

CIpcMessage& CIpcMessage::operator=(const CIpcMessage& other) {
    if (this != &other) {
        m_header = other.m_header;
        m_args = other.m_args;
        m_cursor = 0;
        m_sourceAddress = other.m_sourceAddress;
        m_destinationAddress = other.m_destinationAddress;
        m_replyAddress = other.m_replyAddress;
    }
    return *this;
}

CIpcMessage::CIpcMessage(CIpcMessage&& other) noexcept : CIpcMessage(static_cast<EMessageType>(other.m_header.type)) {
    Swap(other);
}

CIpcMessage& CIpcMessage::operator=(CIpcMessage&& other) noexcept {
    if (this != &other) {
        CIpcMessage(std::move(other)).Swap(*this);
    }
    return *this;
}

void CIpcMessage::Swap(CIpcMessage& other) noexcept {
    std::swap(m_header, other.m_header);
    m_args.swap(other.m_args);
    std::swap(m_cursor, other.m_cursor);
    std::swap(m_sourceAddress, other.m_sourceAddress);
    std::swap(m_destinationAddress, other.m_destinationAddress);
    m_buffer.swap(other.m_buffer);
    std::swap(m_bufferSize, other.m_bufferSize);
    m_replyAddress.swap(other.m_replyAddress);
}

CIpcMessage::~CIpcMessage() = default;

void CIpcMessage::Reset() {
    m_header = SHeader{kMagic, 0, m_header.type, kNoCode, kNoSubCode, 0, 0, 0};
    m_args.clear();
    m_cursor = 0;
    m_sourceAddress = 0;
    m_destinationAddress = 0;
    m_replyAddress.clear();
}

void CIpcMessage::SetCode(const std::string& code) {
    if (code.size() != 3) {
        THROW_EXCEPTION("Invalid code %s", code.c_str());
    }
    m_header.code = PackCode(code);
}

std::string CIpcMessage::GetCode() const { return UnpackCode(m_header.code, 3); }

void CIpcMessage::SetSubCode(const std::string& subcode) {
    if (!subcode.empty() && subcode.size() != 4) {
        THROW_EXCEPTION("Invalid subcode %s", subcode.c_str());
    }
    m_header.subcode = PackCode(subcode);
}

std::string CIpcMessage::GetSubCode() const {
    return m_header.subcode == 0 ? std::string() : UnpackCode(m_header.subcode, 4);
}

void CIpcMessage::CheckRoomFor(unsigned short id) const {
    // The limit is checked before looking for the id, so even a replacement is refused
    // once the message is full; the number reported is the parameter id.
    if (m_args.size() >= kMaxNumParms) {
        THROW_EXCEPTION("Unable to add new message parameter.  MaxNumParms exceeded (%d)", id);
    }
}

void CIpcMessage::AddArg(unsigned short id, int value, EParmFlags flags, unsigned char modifier) {
    CheckRoomFor(id);
    char text[16];
    char* end = std::to_chars(text, text + sizeof text, value).ptr;
    if (flags == PARM_TEXT) {
        const unsigned digits = static_cast<unsigned>(end - text) - (value < 0 ? 1u : 0u);
        flags = static_cast<EParmFlags>(PARM_NUMBER | (digits >= 3 ? digits : 3u));
    }
    SMessageArgs& arg = Slot(id);
    arg.flags = flags;
    arg.modifier = modifier;
    arg.text.assign(text, end);
    m_cursor = 0;
}

void CIpcMessage::AddArg(unsigned short id, const std::string& text, unsigned char modifier) {
    CheckRoomFor(id);
    if (text.find('\0') != std::string::npos) {
        THROW_EXCEPTION("Argument %d text holds a NUL character", id);
    }
    SMessageArgs& arg = Slot(id);
    arg.flags = PARM_TEXT;
    arg.modifier = modifier;
    arg.text = text;
    m_cursor = 0;
}

const SMessageArgs* CIpcMessage::Find(unsigned short id) const {
    const Arg* arg = Matching(m_args, id);
    return arg ? &arg->second : nullptr;
}

SMessageArgs& CIpcMessage::Slot(unsigned short id) {
    // Arguments mostly arrive in ascending order: appending needs no search.
    if (m_args.empty() || m_args.back().first < id) {
        if (m_args.capacity() == 0) {
            // A message mostly holds two to four: one allocation rather than one per
            // growth step of a fresh message.
            m_args.reserve(4);
        }
        m_args.emplace_back(id, SMessageArgs());
        return m_args.back().second;
    }
    auto it = std::lower_bound(m_args.begin(), m_args.end(), id, IdBelow);
    if (it == m_args.end() || it->first != id) {
        it = m_args.emplace(it, id, SMessageArgs());
    }
    return it->second;
}

bool CIpcMessage::GetArg(unsigned short id, std::string& text) const {
    const SMessageArgs* arg = Find(id);
    if (arg) {
        text = arg->text;
    }
    return arg != nullptr;
}

bool CIpcMessage::GetArg(unsigned short id, int& value) const {
    const SMessageArgs* arg = Find(id);
    if (!arg || arg->flags == PARM_TEXT) {
        return false;
    }
    // Read as strtol reads a decimal (blanks and a sign before the digits), by hand: every
    // number of every message is read, and strtol's locale and errno cost 32-bit ARM
    // several times the digits. A text holds no NUL, so its c_str() ends where it does.
    const char* at = arg->text.c_str();
    while (*at == ' ' || (*at >= '\t' && *at <= '\r')) {
        ++at;
    }
    const bool negative = *at == '-';
    if (*at == '-' || *at == '+') {
        ++at;
    }
    const char* const digits = at;
    int64_t magnitude = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        if (magnitude <= INT_MAX + INT64_C(1)) {  // beyond that the value is out of range anyway
            magnitude = magnitude * 10 + (*at - '0');
        }
    }
    const int64_t converted = negative ? -magnitude : magnitude;
    value = converted < INT_MIN ? INT_MIN : converted > INT_MAX ? INT_MAX : static_cast<int>(converted);
    return at != digits && *at == '\0' && converted >= INT_MIN && converted <= INT_MAX;
}

bool CIpcMessage::GetModifier(unsigned short id, unsigned char& modifier) const {
    const SMessageArgs* arg = Find(id);
    if (arg) {
        modifier = arg->modifier;
    }
    return arg != nullptr;
}

bool CIpcMessage::GetArgFlags(unsigned short id, EParmFlags& flags) const {
    const SMessageArgs* arg = Find(id);
    if (arg) {
        flags = static_cast<EParmFlags>(arg->flags);
    }
    return arg != nullptr;
}

bool CIpcMessage::IsNumberArg(unsigned short id) const {
    const SMessageArgs* arg = Find(id);
    return arg && (arg->flags & PARM_NUMBER) != 0;
}

bool CIpcMessage::IsTextArg(unsigned short id) const {
    const SMessageArgs* arg = Find(id);
    return arg && arg->flags == PARM_TEXT;
}

void CIpcMessage::SetCharDelimiter(unsigned short id) {
    if (Arg* arg = Matching(m_args, id)) {
        arg->second.flags |= PARM_CHAR_DELIMITER;
    }
}

bool CIpcMessage::GetFirstArg(unsigned short& id, std::string& text) {
    m_cursor = 0;
    return GetNextArg(id, text);
}

bool CIpcMessage::GetNextArg(unsigned short& id, std::string& text) {
    if (m_cursor >= m_args.size()) {
        return false;
    }
    id = m_args[m_cursor].first;
    text = m_args[m_cursor].second.text;
    ++m_cursor;
    return true;
}

void CIpcMessage::RemoveArg(unsigned short id) {
    if (const Arg* arg = Matching(m_args, id)) {
        m_args.erase(m_args.begin() + (arg - m_args.data()));
    }
    m_cursor = 0;
}

void CIpcMessage::ClearArgs() {
    m_args.clear();
    m_header.argCount = 0;
    m_cursor = 0;
}

void CIpcMessage::MakeReply(unsigned short address) {
    ClearArgs();
    m_destinationAddress = m_sourceAddress;
    m_sourceAddress = address;
    m_header.flags = static_cast<uint16_t>(
        (m_header.flags & ~(MSG_FLAG_REQUEST | MSG_FLAG_REPLY_WANTED | MSG_FLAG_SENDER_PRIVATE)) | MSG_FLAG_REPLY);
}

CIpcMessage CIpcMessage::EmptyReply() const {
    CIpcMessage reply;
    reply.AssignEmptyReply(*this);
    return reply;
}

void CIpcMessage::AssignEmptyReply(const CIpcMessage& request) {
    if (this == &request) {
        MakeReply(0);
        return;
    }
    Reset();
    CopyHeader(request);
    m_sourceAddress = request.m_sourceAddress;
    m_destinationAddress = request.m_destinationAddress;
    MakeReply(0);
}

void CIpcMessage::CopyHeader(const CIpcMessage& other) {
    if (this == &other) {
        return;
    }
    m_header.flags = other.m_header.flags;
    m_header.type = other.m_header.type;
    m_header.code = other.m_header.code;
    m_header.subcode = other.m_header.subcode;
    m_header.sequence = other.m_header.sequence;
    m_header.argCount = other.m_header.argCount;
    m_header.totalSize = other.m_header.totalSize;
    m_replyAddress = other.m_replyAddress;
}

size_t CIpcMessage::GetSerializedSize() const {
    size_t total = kHeaderSize;
    for (const auto& entry : m_args) {
        total += entry.second.text.size() + 5;
    }
    return total;
}

int CIpcMessage::SerializeMessage(unsigned char*& out) {
    const size_t total = GetSerializedSize();
    if (total >= kMaxMessageSize) {
        out = m_buffer.get();
        return static_cast<int>(total);
    }

    m_header.argCount = static_cast<uint16_t>(m_args.size());
    m_header.totalSize = static_cast<uint16_t>(total);
    if (total > m_bufferSize) {
        m_buffer.reset(new unsigned char[total]);
        m_bufferSize = total;
    }
    unsigned char* at = m_buffer.get();
    memcpy(at, &m_header, kHeaderSize);
    at += kHeaderSize;
    for (const auto& entry : m_args) {
        const uint16_t id = entry.first;
        at[0] = entry.second.flags;
        at[1] = entry.second.modifier;
        memcpy(at + 2, &id, sizeof id);
        memcpy(at + 4, entry.second.text.c_str(), entry.second.text.size() + 1);
        at += entry.second.text.size() + 5;
    }
    out = m_buffer.get();
    return static_cast<int>(total);
}

bool CIpcMessage::IsCompleteMessage(const unsigned char* buffer, unsigned int length) {
    if (!buffer || length < kHeaderSize || ReadU16(buffer) != kMagic || ReadU16(buffer + 22) != length) {
        return false;
    }
    const unsigned count = ReadU16(buffer + 20);
    unsigned offset = kHeaderSize;
    for (unsigned i = 0; i < count; ++i) {
        if (length - offset < 5) {
            return false;
        }
        const void* nul = memchr(buffer + offset + 4, '\0', length - offset - 4);
        if (!nul) {
            return false;
        }
        offset = static_cast<unsigned>(static_cast<const unsigned char*>(nul) - buffer) + 1;
    }
    return offset == length;
}

bool CIpcMessage::DeserializeMessage(const unsigned char* buffer, unsigned int length, const char* from) {
    if (!IsCompleteMessage(buffer, length)) {
        return false;
    }
    m_args.clear();
    memcpy(&m_header, buffer, kHeaderSize);
    const unsigned char* at = buffer + kHeaderSize;
    for (unsigned i = 0; i < m_header.argCount; ++i) {
        SMessageArgs& arg = Slot(ReadU16(at + 2));
        arg.flags = at[0];
        arg.modifier = at[1];
        arg.text = reinterpret_cast<const char*>(at + 4);
        at += arg.text.size() + 5;
    }
    m_cursor = 0;
    m_sourceAddress = 0;
    m_destinationAddress = 0;
    m_replyAddress = from ? from : "";
    return true;
}

std::string CIpcMessage::GetMsgAsString(const CIpcMessage& message) {
    char addresses[16];
    snprintf(addresses, sizeof addresses, "%u %u ", message.m_destinationAddress, message.m_sourceAddress);
    std::string text = addresses;
    text += message.GetCode();
    if (message.m_header.subcode != 0) {
        text += '+';
        text += message.GetSubCode();
    }
    if (message.HasFlag(MSG_FLAG_REQUEST)) {
        text += '?';
    } else if (message.HasFlag(MSG_FLAG_REPLY)) {
        text += '!';
    }
    for (unsigned i = 0; i < message.m_header.argCount; ++i) {
        text += ' ';
        const unsigned short id = static_cast<unsigned short>(i);
        if (message.IsTextArg(id)) {
            std::string arg;
            message.GetArg(id, arg);
            text += arg;
        } else {
            int value = 0;
            message.GetArg(id, value);
            text += std::to_string(value);
        }
    }
    return text;
}
