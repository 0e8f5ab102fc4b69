#include "ascii/CVeltraneSerialParser.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <initializer_list>
#include <list>
#include <string_view>
#include <vector>

#include "CException.h"
#include "ascii/CSerialHandler.h"
#include "link/CEventLink.h"
#include "security/CSecurityManager.h"
#include "text/NAsciiCodeUtils.h"
#include "text/NErrorText.h"
#include "time/CMonotonicClockLowRes.h"

int CVeltraneSerialParser::s_address = 0;
ENetworkRouting CVeltraneSerialParser::s_routing = ROUTING_SERIAL_PAIR;

namespace {

const IMonotonicClock& DefaultClock() {
    static const CMonotonicClockLowRes clock;
    return clock;
}

bool IsDigit(unsigned char c) { return c >= '0' && c <= '9'; }
bool IsLetter(unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
int HexValue(unsigned char c) {
    if (IsDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// The byte an escape letter stands for; the character itself for any other.
unsigned char Unescape(unsigned char c) {
    switch (std::tolower(c)) {
    case 'b': return 1;
    case 'n': return 10;
    case 'e': return 14;
    case 'g': return 17;
    case 's': return 19;
    case 'x': return 27;
    }
    return c;
}

void AppendEscaped(std::string& out, const std::string& text) {
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
        case 1: out += "\\b"; break;
        case 10: out += "\\n"; break;
        case 14: out += "\\e"; break;
        case 17: out += "\\g"; break;
        case 19: out += "\\s"; break;
        case 27: out += "\\x"; break;
        case '"':
        case '(':
        case ')':
        case '\\':
            out += '\\';
            out += static_cast<char>(c);
            break;
        default: out += static_cast<char>(c);
        }
    }
}

// What printf's "%0*d" writes: at least `width` characters, zeros between the sign and the
// digits. Every query's reply is formatted here, and snprintf's reading of its format
// was a third of the cost.
void AppendZeroPadded(std::string& out, int value, int width) {
    char digits[16];
    const char* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    const char* begin = digits;
    if (value < 0) {
        out += '-';
        ++begin;
        --width;
    }
    if (end - begin < width) {
        out.append(static_cast<size_t>(width - (end - begin)), '0');
    }
    out.append(begin, end);
}

bool IsOneOf(const CIpcMessage& message, std::initializer_list<std::string_view> codes) {
    for (const std::string_view candidate : codes) {
        if (message.IsCode(candidate)) {
            return true;
        }
    }
    return false;
}

}  // namespace

CVeltraneSerialParser::CVeltraneSerialParser(CEventLink* link, CSerialHandler* handler, CCommPort* port, ILog& log,
                                             const IMonotonicClock* clock)
    : CSerialParser(*port), m_link(link), m_handler(handler), m_log(log),
      m_defaultAccessGroup(CSecurityManager::kDefaultAccessGroup),
      m_accessLevel(CSecurityManager::kDefaultAccessGroup),
      m_inactivity(clock ? *clock : DefaultClock(), kLoginTimeoutMs) {}

CVeltraneSerialParser::~CVeltraneSerialParser() = default;

unsigned char CVeltraneSerialParser::RouteMask(ENetworkRouting routing, unsigned char from) {
    const unsigned char serial = PORT_A | PORT_B | PORT_C;
    switch (routing) {
    case ROUTING_SERIAL_PAIR:
        return from == PORT_A ? PORT_B : from == PORT_B ? PORT_A : 0;
    case ROUTING_SERIAL_ALL:
        return (from & serial) ? static_cast<unsigned char>(serial & ~from) : 0;
    case ROUTING_SERIAL_NETWORK:
        if (from == PORT_A || from == PORT_B) {
            return static_cast<unsigned char>(((PORT_A | PORT_B) & ~from) | PORT_ETHERNET);
        }
        return from == PORT_ETHERNET ? PORT_A | PORT_B : 0;
    case ROUTING_ALL:
        if (from & serial) {
            return static_cast<unsigned char>((serial & ~from) | PORT_ETHERNET | PORT_USB);
        }
        if (from == PORT_ETHERNET) {
            return serial | PORT_ETHERNET | PORT_USB;
        }
        return from == PORT_USB ? serial | PORT_ETHERNET : 0;
    }
    return 0;
}

void CVeltraneSerialParser::SetDefaultAccessGroup(int level) {
    m_defaultAccessGroup = level;
    if (!m_loggedIn) {
        m_accessLevel = level;
    }
}

// ---- receiving -------------------------------------------------------------------

EParseResult CVeltraneSerialParser::ProcessData() { return UpdateRxd(); }

EParseResult CVeltraneSerialParser::UpdateRxd() {
    const int count = GetPort().ReadString(m_input, static_cast<unsigned short>(kBufferSize));
    if (count == 0) {
        return PARSE_NO_DATA;  // end of stream: the peer is gone
    }
    if (count < 0) {
        return PARSE_INCOMPLETE;  // woken without data; the port is still there
    }
    if (m_protocol != PROTOCOL_ASCII) {
        return PARSE_INCOMPLETE;
    }
    return Feed(m_input, static_cast<size_t>(count));
}

EParseResult CVeltraneSerialParser::Feed(const unsigned char* bytes, size_t count) {
    EParseResult result = PARSE_INCOMPLETE;
    for (size_t i = 0; i < count && !m_closed; ++i) {
        const EParseResult step = FeedByte(bytes[i]);
        if (step != PARSE_INCOMPLETE) {
            result = step;
        }
    }
    return result;
}

void CVeltraneSerialParser::StartMessage() {
    m_message.Reset();
    m_message.SetSubCode("");
    m_checksum = 0;
    m_token.clear();
    m_text.clear();
    m_modifier = 0;
    m_blankBefore = false;
    m_afterCode = false;
    m_afterSubcode = false;
    m_lastParamIsNumber = false;
    m_sourceGiven = false;
    m_state = HEADER;
}

void CVeltraneSerialParser::Drop() {
    m_token.clear();
    m_text.clear();
    m_state = EMPTY;
}

EParseResult CVeltraneSerialParser::FeedByte(unsigned char c) {
    if (m_state == EMPTY) {
        if (c == '(') {
            StartMessage();
        }
        return PARSE_INCOMPLETE;
    }
    m_checksum = static_cast<uint8_t>(m_checksum + c);

    switch (m_state) {
    case HEADER:
        if (c == '(') {
            StartMessage();
        } else if (c == ')') {
            Drop();
        } else if (IsLetter(c)) {
            const EParseResult header = ParseHeader();
            if (header != PARSE_INCOMPLETE) {
                return header;
            }
            m_token.assign(1, static_cast<char>(std::toupper(c)));
            m_state = CODE;
        } else {
            if (m_token.size() + 1 >= kTokenSize) {  // the buffer keeps room for its end
                return SyntaxError("buffer overflow", static_cast<int>(kTokenSize));
            }
            m_token += static_cast<char>(c);
        }
        return PARSE_INCOMPLETE;

    case CODE:
        if (c == '(') {
            StartMessage();
            return PARSE_INCOMPLETE;
        }
        if (m_token.size() < 3) {
            if (!IsLetter(c)) {
                Drop();  // a code of fewer than three letters is dropped without a word
                return PARSE_INCOMPLETE;
            }
            m_token += static_cast<char>(std::toupper(c));
            return PARSE_INCOMPLETE;
        }
        m_message.SetCode(m_token);
        m_token.clear();
        m_afterCode = true;
        return HandleParamStart(c);

    case SUBCODE:
        if (c == '(') {
            StartMessage();
            return PARSE_INCOMPLETE;
        }
        if (c == ')' && m_token.size() < 4) {
            Drop();
            return PARSE_INCOMPLETE;
        }
        if (m_token.empty() && c == ' ') {
            return PARSE_INCOMPLETE;
        }
        if (c == 0 && m_token.size() < 4) {
            return SyntaxError("Invalid subcode", -1);  // error replies quote it; IPC texts cannot carry a NUL
        }
        if (m_token.size() < 4) {
            m_token += static_cast<char>(std::toupper(c));
            return PARSE_INCOMPLETE;
        }
        m_message.SetSubCode(m_token);
        m_token.clear();
        m_afterSubcode = true;
        return HandleParamStart(c);

    case PARAM_START:
        return HandleParamStart(c);

    case NUMBER:
        if (c == '(') {
            StartMessage();
            return PARSE_INCOMPLETE;
        }
        if (IsDigit(c) || c == '-') {
            if (m_token.size() + 1 >= kTokenSize) {  // the buffer keeps room for its end
                return SyntaxError("buffer overflow", static_cast<int>(kTokenSize));
            }
            m_token += static_cast<char>(c);
            return PARSE_INCOMPLETE;
        }
        if (c == '"' && m_token.empty()) {
            m_text.clear();
            m_textAfterEscape = false;
            m_state = TEXT;
            return PARSE_INCOMPLETE;
        }
        {
            const EParseResult added = AddNumber();
            if (added != PARSE_INCOMPLETE) {
                return added;
            }
        }
        return HandleParamStart(c);

    case TEXT:
        if (c == '"') {
            return AddText();
        }
        if (c == '\\') {
            m_state = ESCAPE;
            return PARSE_INCOMPLETE;
        }
        if (c == '(' || c == ')' || c == 10 || c == 17 || c == 19) {
            return SyntaxError("escape expected", c);
        }
        if (m_text.size() >= kMaxTextLength) {
            return SyntaxError(m_textAfterEscape ? "buffer overflow" : "text buffer overflow",
                               static_cast<int>(kMaxTextLength));
        }
        m_text += static_cast<char>(c);
        return PARSE_INCOMPLETE;

    case ESCAPE:
        if (c == 'h' || c == 'H') {
            m_state = HEX1;
            return PARSE_INCOMPLETE;
        }
        if (m_text.size() >= kMaxTextLength) {
            return SyntaxError("buffer overflow", static_cast<int>(kMaxTextLength));
        }
        m_text += static_cast<char>(Unescape(c));
        m_textAfterEscape = true;
        m_state = TEXT;
        return PARSE_INCOMPLETE;

    case HEX1:
        if (HexValue(c) < 0) {
            return SyntaxError("invalid hex digit", c);
        }
        m_hexHigh = static_cast<unsigned char>(HexValue(c));
        m_state = HEX2;
        return PARSE_INCOMPLETE;

    case HEX2: {
        if (HexValue(c) < 0) {
            return SyntaxError("invalid hex digit", c);
        }
        const unsigned char byte = static_cast<unsigned char>((m_hexHigh << 4) | HexValue(c));
        if (byte == 0) {
            return SyntaxError("invalid hex escape", 0);  // the IPC text cannot carry a NUL
        }
        if (m_text.size() >= kMaxTextLength) {
            return SyntaxError("buffer overflow", static_cast<int>(kMaxTextLength));
        }
        m_text += static_cast<char>(byte);
        m_textAfterEscape = true;
        m_state = TEXT;
        return PARSE_INCOMPLETE;
    }

    case EMPTY:
        break;
    }
    return PARSE_INCOMPLETE;
}

EParseResult CVeltraneSerialParser::HandleParamStart(unsigned char c) {
    const bool afterCode = m_afterCode;
    const bool afterSubcode = m_afterSubcode;
    m_afterCode = false;
    m_afterSubcode = false;
    m_state = PARAM_START;
    switch (c) {
    case '!':
        m_message.SetFlags(static_cast<uint16_t>(m_message.GetFlags() | ASCII_REPLY));
        return PARSE_INCOMPLETE;
    case '?':
        m_message.SetFlags(static_cast<uint16_t>(m_message.GetFlags() | ASCII_QUERY));
        return PARSE_INCOMPLETE;
    case '"':
        m_text.clear();
        m_textAfterEscape = false;
        m_state = TEXT;
        return PARSE_INCOMPLETE;
    case '(':
        StartMessage();
        return PARSE_INCOMPLETE;
    case ')':
        return CompleteMessage();
    case '+':
        m_token.clear();
        m_state = SUBCODE;
        return PARSE_INCOMPLETE;
    case ' ':
        m_blankBefore = true;
        return PARSE_INCOMPLETE;
    default:
        break;
    }
    if (IsDigit(c) || c == '-') {
        m_savedChecksum = static_cast<uint8_t>(m_checksum - c);
        m_token.assign(1, static_cast<char>(c));
        m_state = NUMBER;
        return PARSE_INCOMPLETE;
    }
    if (c == 0) {
        return SyntaxError("invalid character", 0);  // a NUL modifier would read as "none"
    }
    if (afterCode) {
        return SyntaxError("Invalid code", -1);
    }
    if (afterSubcode) {
        return SyntaxError("Invalid subcode", -1);
    }
    m_modifier = c;
    m_savedChecksum = m_checksum;
    m_token.clear();
    m_state = NUMBER;
    return PARSE_INCOMPLETE;
}

EParseResult CVeltraneSerialParser::ParseHeader() {
    uint16_t flags = 0;
    std::vector<long> numbers;
    const std::string& header = m_token;
    for (size_t i = 0; i < header.size();) {
        const unsigned char c = static_cast<unsigned char>(header[i]);
        if (c == ' ') {
            ++i;
        } else if (c == '$') {
            flags |= ASCII_ACK_WANTED;
            ++i;
        } else if (c == '#') {
            flags |= ASCII_MARKER;
            ++i;
        } else if (c == '&') {
            flags |= ASCII_CHECKSUM;
            ++i;
        } else if (IsDigit(c) && numbers.size() < 2) {
            long value = 0;
            while (i < header.size() && IsDigit(static_cast<unsigned char>(header[i]))) {
                value = value * 10 + (header[i] - '0');
                if (value > 9999999) {
                    value = 9999999;  // far out of range already; keeps the arithmetic bounded
                }
                ++i;
            }
            numbers.push_back(value);
        } else {
            return SyntaxError("invalid header", -1);
        }
    }

    uint16_t destination = 0;
    if (numbers.empty() || numbers[0] == kBroadcastAddress) {
        flags |= ASCII_BROADCAST;
        destination = numbers.empty() ? 0 : kBroadcastAddress;
    } else if (numbers[0] == kThisProjectorAddress || numbers[0] < kAddressLimit) {
        destination = static_cast<uint16_t>(numbers[0]);
    } else {
        return SyntaxError("dest address out of range", static_cast<int>(numbers[0]));
    }
    m_sourceGiven = numbers.size() > 1;
    if (m_sourceGiven && numbers[1] >= kAddressLimit) {
        return SyntaxError("source address out of range", static_cast<int>(numbers[1]));
    }
    m_message.SetFlags(flags);
    m_message.SetDestinationAddress(destination);
    m_message.SetSourceAddress(m_sourceGiven ? static_cast<uint16_t>(numbers[1]) : 0);
    m_token.clear();
    return PARSE_INCOMPLETE;
}

void CVeltraneSerialParser::ResolveOwnAddress(CIpcMessage& message) const {
    const auto own = static_cast<uint16_t>(s_address);
    if (m_sourceGiven && message.GetSourceAddress() == own) {
        // Sent from this projector's own address: it is for this projector alone.
        message.SetDestinationAddress(own);
        message.SetFlags(static_cast<uint16_t>(message.GetFlags() & ~ASCII_BROADCAST));
    } else if (message.GetDestinationAddress() == kThisProjectorAddress) {
        message.SetDestinationAddress(own);
    }
}

EParseResult CVeltraneSerialParser::AddNumber() {
    if (m_message.GetNumArgs() >= kMaxParameters) {
        return SyntaxError("too many parms", static_cast<int>(kMaxParameters));
    }
    const bool negative = !m_token.empty() && m_token[0] == '-';
    const std::string digits = negative ? m_token.substr(1) : m_token;
    bool valid = digits.size() <= 10;
    for (char d : digits) {
        valid = valid && IsDigit(static_cast<unsigned char>(d));
    }
    long long value = 0;
    for (size_t i = 0; valid && i < digits.size(); ++i) {  // at most 10 digits: no overflow
        value = value * 10 + (digits[i] - '0');
    }
    if (negative) {
        value = -value;
    }
    if (!valid || value < INT_MIN || value > INT_MAX || (negative && digits.empty())) {
        return SyntaxError("invalid number", -1);
    }
    const int flags = PARM_NUMBER | static_cast<int>(digits.size()) | (m_blankBefore ? 0 : PARM_CHAR_DELIMITER);
    const unsigned short id = static_cast<unsigned short>(m_message.GetNumArgs());
    m_message.AddArg(id, static_cast<int>(value), static_cast<EParmFlags>(flags), m_modifier);
    m_lastParamIsNumber = !m_token.empty();
    m_lastNumberChecksum = m_savedChecksum;
    m_token.clear();
    m_modifier = 0;
    m_blankBefore = false;
    return PARSE_INCOMPLETE;
}

EParseResult CVeltraneSerialParser::AddText() {
    if (m_message.GetNumArgs() >= kMaxParameters) {
        return SyntaxError("too many parms", static_cast<int>(kMaxParameters));
    }
    if (m_text.find('\0') != std::string::npos) {
        return SyntaxError("invalid character", 0);  // the IPC text cannot carry a NUL
    }
    const unsigned short id = static_cast<unsigned short>(m_message.GetNumArgs());
    m_message.AddArg(id, m_text, m_modifier);
    if (!m_blankBefore) {
        m_message.SetCharDelimiter(id);
    }
    m_lastParamIsNumber = false;
    m_text.clear();
    m_modifier = 0;
    m_blankBefore = false;
    m_state = PARAM_START;
    return PARSE_INCOMPLETE;
}

EParseResult CVeltraneSerialParser::SyntaxError(const std::string& reason, int value) {
    std::string text = "Syntax Error: " + reason;
    if (value != -1) {
        text += ": " + std::to_string(value);
    }
    m_log.LogWarning("%s on %s", text.c_str(), GetPort().GetName().c_str());
    Drop();
    SendErrorBroadcast(LOG_LEVEL_DEBUG, ERR_SERIAL_RECEIVE, text);
    return PARSE_SYNTAX_ERROR;
}

EParseResult CVeltraneSerialParser::CompleteMessage() {
    // The parser is back in its empty state while the message is handled; the next one is
    // parsed into the same object (StartMessage resets it), so its storage is kept.
    m_state = EMPTY;
    m_token.clear();
    m_text.clear();
    CIpcMessage& message = m_message;
    if (message.GetFlags() & ASCII_CHECKSUM) {
        const unsigned count = message.GetNumArgs();
        if (count == 0) {
            return SyntaxError("no checksum", -1);
        }
        const unsigned short last = static_cast<unsigned short>(count - 1);
        int received = 0;
        if (!m_lastParamIsNumber || !message.IsNumberArg(last) || !message.GetArg(last, received)) {
            return SyntaxError("checksum not a number", -1);
        }
        if (received != m_lastNumberChecksum) {
            return SyntaxError("checksum failed", received);
        }
        message.RemoveArg(last);
    }
    ResolveOwnAddress(message);
    if (RxdPreProcessMsg(message)) {
        RxdProcessMsg(message);
    }
    return PARSE_COMPLETE;
}

// ---- handling ---------------------------------------------------------------------

bool CVeltraneSerialParser::RxdPreProcessMsg(CIpcMessage& message) {
    const bool broadcast = (message.GetFlags() & ASCII_BROADCAST) != 0;
    const bool toUs = !broadcast && message.GetDestinationAddress() == s_address;
    if (!message.IsCode("UID") && !toUs) {
        const unsigned char mask = RouteMask(s_routing, CCommPort::GetRoutingBit(GetPort().GetPortId()));
        if (mask != 0 && m_handler) {
            const int length = Send(0, &message);
            m_handler->RelayMessage(this, reinterpret_cast<const unsigned char*>(m_transmit.data()), length, mask);
        }
    }
    return broadcast || toUs;
}

bool CVeltraneSerialParser::RxdProcessMsg(CIpcMessage& message) {
    // Only a login has an hour to run out (which Login starts), so the clock is read only
    // then: each reading is a system call on this clock.
    if (m_loggedIn) {
        if (m_inactivity.IsExpired()) {
            m_log.LogFYI(FYI_LOGIN, "%s logged out after an hour without messages on %s", m_user.c_str(),
                         GetPort().GetName().c_str());
            SetUser(kDefaultUser);
            m_accessLevel = m_defaultAccessGroup;
        } else {
            m_inactivity.Restart();
        }
    }

    const uint16_t flags = message.GetFlags();
    const bool query = (flags & ASCII_QUERY) != 0;
    bool result = false;
    const bool isLogin = message.IsCode("UID");
    const bool fromPeer = (flags & ASCII_REPLY) != 0 || (!query && IsOneOf(message, {"FYI", "ERR"}));
    if (fromPeer) {
        // What a linked projector says back is taken and dropped on any port: answering
        // it with an error would set two projectors erroring at each other for ever.
        result = (flags & ASCII_REPLY) ? ExtReply(message) : true;
    } else if (!CSecurityManager::IsCommandAllowed(static_cast<ERemoteAccess>(m_remoteAccess), query, isLogin,
                                            m_loggedIn)) {
        SendError(LOG_LEVEL_ERROR, ERR_INVALID_ACCESS_GROUP, "Access denied on this port", &message);
    } else if (flags & ASCII_REPLY) {
        result = ExtReply(message);
    } else if (query) {
        result = ExtRequest(message);
    } else {
        result = ExtCommand(message);
    }
    if (flags & ASCII_ACK_WANTED) {
        result ? SendAck() : SendNak();
    }
    return result;
}

void CVeltraneSerialParser::SetUser(const std::string& user) {
    m_user = user;
    m_loggedIn = m_user != kDefaultUser;
}

bool CVeltraneSerialParser::ExtReply(const CIpcMessage&) { return true; }

bool CVeltraneSerialParser::ExtCommand(CIpcMessage& message) {
    if (message.IsCode("UID")) {
        return HandleUserLogin(message);
    }
    if (IsOneOf(message, {"DGN", "TST", "EVT", "BST"})) {
        message.SetFlags(static_cast<uint16_t>(message.GetFlags() | ASCII_QUERY));
        return ExtRequest(message);
    }
    if (IsOneOf(message, {"FYI", "ERR"})) {
        return true;
    }
    if (message.IsCode("NOT")) {
        const std::string error = HandleNotificationRequests(message);
        if (!error.empty()) {
            SendError(LOG_LEVEL_ERROR, ERR_INVALID_PARAMETER, error, &message);
            return false;
        }
        return true;
    }
    if (!m_link) {
        return false;
    }
    m_request = message;
    m_reply.Reset();  // an exchange that fails early leaves it as it is
    const EError result = m_link->SendCommand(m_accessLevel, m_request, m_reply, kCommandTimeoutMs);
    if (result != ERR_NONE) {
        SendControllerError(result, m_reply, message);
        return false;
    }
    if (message.GetFlags() & ASCII_MARKER) {
        SendBack(m_reply, message);
    }
    return true;
}

bool CVeltraneSerialParser::ExtRequest(CIpcMessage& message) {
    if (message.IsCode("UID")) {
        return HandleUserLogin(message);
    }
    if (!m_link) {
        return false;
    }
    m_request = message;
    m_request.SetFlags(static_cast<uint16_t>(m_request.GetFlags() | MSG_FLAG_REQUEST));
    const unsigned timeout = IsOneOf(message, {"DGN", "TST", "BST"}) ? kLongRequestTimeoutMs : kCommandTimeoutMs;
    const EError result = m_link->SendRequest(m_accessLevel, m_request, m_replies, timeout);
    if (result != ERR_NONE) {
        SendControllerError(result, m_replies.empty() ? CIpcMessage() : m_replies.back(), message);
        return false;
    }
    for (CIpcMessage& reply : m_replies) {
        SendBack(reply, message);
    }
    return true;
}

void CVeltraneSerialParser::SendControllerError(EError error, const CIpcMessage& reply, const CIpcMessage& request) {
    int code = 0;
    std::string text;
    if (!(reply.GetArg(CIpcMessage::kErrorCodeParm, code) && code == error &&
          reply.GetArg(CIpcMessage::kErrorTextParm, text) && !text.empty())) {
        text = NErrorText::GetErrorString(error);
    }
    m_lastError = error;
    SendSerialError(error, text, request);
}

void CVeltraneSerialParser::SendBack(CIpcMessage& reply, const CIpcMessage& request) {
    reply.SetFlags(static_cast<uint16_t>(ASCII_REPLY | (request.GetFlags() & (ASCII_CHECKSUM | ASCII_MARKER))));
    reply.SetSourceAddress(static_cast<uint16_t>(s_address));
    reply.SetDestinationAddress(request.GetSourceAddress());
    Send(kOwnPortBit, &reply);
}

bool CVeltraneSerialParser::HandleUserLogin(CIpcMessage& message) {
    const bool query = (message.GetFlags() & ASCII_QUERY) != 0;
    const unsigned count = message.GetNumArgs();
    if (query) {
        if (count != 0) {
            SendError(LOG_LEVEL_WARNING, ERR_TOO_MANY_PARAMETERS, "No parameters required", &message);
            return false;
        }
        CIpcMessage reply(message);
        reply.ClearArgs();
        reply.AddArg(0, m_user);
        reply.AddArg(1, m_accessLevel, static_cast<EParmFlags>(PARM_NUMBER | 2));
        SendBack(reply, message);
        return true;
    }
    if (count == 0) {
        if (m_loggedIn) {
            m_log.LogFYI(FYI_LOGIN, "%s logged out on %s", m_user.c_str(), GetPort().GetName().c_str());
        }
        SetUser(kDefaultUser);
        m_accessLevel = m_defaultAccessGroup;
        return true;
    }
    std::string user;
    std::string password;
    if (count != 2 || message.IsNumberArg(0) || !message.GetArg(0, user) || !message.GetArg(1, password)) {
        SendError(LOG_LEVEL_ERROR, ERR_INVALID_PARAMETER, "Missing user/password or quotes", &message);
        return false;
    }
    EAccessLevel level = ACCESS_NONE;
    if (m_security) {
        m_security->Refresh();  // a password may have been changed through another front-end
    }
    if (!m_security || !m_security->Login(user, password, level)) {
        SendError(LOG_LEVEL_ERROR, ERR_INVALID_SECURITY_TOKEN, "Invalid user name or password", &message);
        return false;
    }
    SetUser(user);
    m_accessLevel = level;
    m_inactivity.Restart();
    return true;
}

std::string CVeltraneSerialParser::HandleNotificationRequests(const CIpcMessage& message) {
    if (message.GetNumArgs() == 0) {
        return "Missing notification code";
    }
    std::vector<std::pair<std::string, bool>> changes;
    for (unsigned short id = 0; id < message.GetNumArgs(); ++id) {
        std::string code;
        unsigned char modifier = 0;
        if (message.IsNumberArg(id) || !message.GetArg(id, code)) {
            return "Notification codes must be quoted";
        }
        message.GetModifier(id, modifier);
        if (!NAsciiCodeUtils::ValidateCode(code) || (code.size() != 3 && code.size() != 8)) {
            return "Invalid notification code " + code;
        }
        if (modifier != 0 && modifier != 'U' && modifier != 'u') {
            return "Invalid notification modifier";
        }
        changes.emplace_back(code, modifier == 0);
    }
    if (!m_link) {
        return "No controller link";
    }
    for (const auto& change : changes) {
        const auto parts = NAsciiCodeUtils::SplitCode(change.first);
        const std::string subcode = parts.second == "!!!!" ? "" : parts.second;
        const bool known = m_notifyCodes.count(change.first) != 0;
        if (change.second && !known) {
            if (m_link->NotifyRegister(parts.first, subcode, m_link->GetNotifySocketName()) != ERR_NONE) {
                return "Unable to register for " + change.first;
            }
            m_notifyCodes.insert(change.first);
        } else if (!change.second && known) {
            m_link->NotifyUnregister(parts.first, subcode, m_link->GetNotifySocketName(), false);
            m_notifyCodes.erase(change.first);
        }
    }
    return "";
}

void CVeltraneSerialParser::HandleNotification(const CIpcMessage& notification) {
    const std::string code = NAsciiCodeUtils::JoinCode(notification.GetCode(), notification.GetSubCode());
    std::string value;
    if (m_closed || m_protocol != PROTOCOL_ASCII || m_notifyCodes.count(code) == 0 || !notification.GetArg(0, value)) {
        return;
    }
    // Only the value goes out; range, enabled and list changes are for IPC listeners.
    CIpcMessage report;
    report.SetCode(notification.GetCode());
    report.SetSubCode(notification.GetSubCode());
    int number = 0;
    if (notification.IsNumberArg(0) && notification.GetArg(0, number)) {
        report.AddArg(0, number);
    } else {
        report.AddArg(0, value);
    }
    report.SetFlags(ASCII_REPLY);
    report.SetSourceAddress(static_cast<uint16_t>(s_address));
    Send(kOwnPortBit, &report);
}

void CVeltraneSerialParser::BroadcastKey(int key) {
    if (m_closed || m_protocol != PROTOCOL_ASCII) {
        return;
    }
    CIpcMessage message;
    message.SetCode("KEY");
    message.SetSubCode("");
    message.AddArg(0, key);
    message.SetDestinationAddress(kBroadcastAddress);
    message.SetSourceAddress(static_cast<uint16_t>(s_address));
    Send(kOwnPortBit, &message);
}

void CVeltraneSerialParser::ProcessErrors(const std::string& report) {
    SendErrorBroadcast(LOG_LEVEL_WARNING, ERR_COMM_FAILURE, report);
}

// ---- sending ----------------------------------------------------------------------

int CVeltraneSerialParser::Send(unsigned char portMask, const CIpcMessage* message) {
    const uint16_t flags = message->GetFlags();
    std::string& out = m_transmit;
    out.assign(1, '(');
    if (flags & ASCII_CHECKSUM) {
        out += '&';
    }
    if (flags & ASCII_ACK_WANTED) {
        out += '$';
    } else if (flags & ASCII_MARKER) {
        out += '#';
    }
    if (message->GetDestinationAddress() != 0) {
        AppendZeroPadded(out, message->GetDestinationAddress(), 5);
        if (message->GetSourceAddress() != 0) {
            out += ' ';
            AppendZeroPadded(out, message->GetSourceAddress(), 5);
        }
        out += ' ';
    }
    out += message->GetCode();
    const std::string subcode = message->GetSubCode();
    if (!subcode.empty()) {
        out += '+';
        out += subcode;
    }
    const bool reply = (flags & ASCII_REPLY) != 0;
    const bool query = (flags & ASCII_QUERY) != 0;
    if (reply) {
        out += '!';
    } else if (query) {
        out += '?';
    }

    bool first = true;
    bool previousNumber = false;
    for (const CIpcMessage::Arg& arg : message->GetArgs()) {
        const auto parmFlags = static_cast<EParmFlags>(arg.second.flags);
        const unsigned char modifier = arg.second.modifier;
        const bool isNumber = (parmFlags & PARM_NUMBER) != 0;
        // Two numbers without a blank between them would read back as one.
        const bool blank = first ? (modifier != 0 && !reply && !query)
                                 : (parmFlags & PARM_CHAR_DELIMITER) == 0 || (isNumber && previousNumber && modifier == 0);
        first = false;
        previousNumber = isNumber;
        if (blank) {
            out += ' ';
        }
        if (modifier != 0) {
            out += static_cast<char>(modifier);
        }
        if (isNumber) {
            int value = 0;
            message->GetArg(arg.first, value);
            const int digits = parmFlags & PARM_DIGIT_MASK;
            if (digits > 0) {
                AppendZeroPadded(out, value, digits + (value < 0 ? 1 : 0));
            }
        } else {
            out += '"';
            AppendEscaped(out, arg.second.text);
            out += '"';
        }
    }
    if (flags & ASCII_CHECKSUM) {
        out += ' ';
        unsigned sum = 0;
        for (size_t i = 1; i < out.size(); ++i) {
            sum += static_cast<unsigned char>(out[i]);
        }
        AppendZeroPadded(out, static_cast<int>(sum % 256), 3);
    }
    out += ')';
    if (portMask & kOwnPortBit) {
        Write(out);
    }
    return static_cast<int>(out.size());
}

bool CVeltraneSerialParser::Write(const std::string& text) {
    if (m_closed || m_protocol != PROTOCOL_ASCII) {
        return false;
    }
    try {
        if (GetPort().WriteString(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()))) {
            return true;
        }
        m_log.LogWarning("Dropping %zu bytes for %s: its output queue is full", text.size(),
                         GetPort().GetName().c_str());
    } catch (const CException& e) {
        Close(e.GetMessage());
    }
    return false;
}

void CVeltraneSerialParser::Close(const std::string& reason) {
    m_log.LogError("Parser send failure - parser will be closed. %s", reason.c_str());
    m_closed = true;
}

bool CVeltraneSerialParser::RelayMessage(const unsigned char* text, int length) {
    return Write(std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(length)));
}

void CVeltraneSerialParser::SendAck() { Write("$"); }

void CVeltraneSerialParser::SendNak() { Write("^"); }

void CVeltraneSerialParser::SendError(ELogLevel level, EError error, const std::string& text,
                                      const CIpcMessage* request) {
    CIpcMessage reply;
    std::string body = text;
    if (level == LOG_LEVEL_ERROR) {
        body = "System Error: " + text;
    } else if (level == LOG_LEVEL_WARNING) {
        body = "System Warning: " + text;
    }
    reply.SetCode(level == LOG_LEVEL_INFO ? "FYI" : "ERR");
    reply.SetSubCode("");
    reply.AddArg(0, static_cast<int>(error), static_cast<EParmFlags>(PARM_NUMBER | 5));
    reply.AddArg(1, body);
    reply.SetSourceAddress(static_cast<uint16_t>(s_address));
    const uint16_t source = request ? request->GetSourceAddress() : 0;
    reply.SetDestinationAddress(request && source != 0 ? source : kBroadcastAddress);
    Send(kOwnPortBit, &reply);
}

void CVeltraneSerialParser::SendErrorBroadcast(ELogLevel level, EError error, const std::string& text) {
    SendError(level, error, text, nullptr);
}

void CVeltraneSerialParser::SendSerialError(EError error, const std::string& text, const CIpcMessage& request) {
    const std::string subcode = request.GetSubCode();
    const std::string prefix = subcode.empty() ? request.GetCode() + ": " : request.GetCode() + "+" + subcode + ": ";
    SendError(LOG_LEVEL_ERROR, error, prefix + text, &request);
}
