#pragma once
// CVeltraneSerialParser: the ASCII command protocol on one port. It turns the port's
// byte stream into IPC messages for the controller (through the event link), and the
// controller's replies and notifications back into ASCII on the same port.
//
// Received syntax: "(" [header] code ["+" subcode] [flags] [parameters] ")"; anything
// outside parentheses is ignored.
//   header      blanks, "$" (acknowledge wanted), "#" (marker), "&" (checksum present),
//               then an optional destination and an optional source address, decimal.
//               Destination 65535 = broadcast, 65534 = this projector, else below 1024;
//               source below 1024. No header at all = broadcast.
//   code        three letters (upper-cased); "+" and four characters give the subcode.
//   flags       "?" query, "!" reply.
//   parameters  numbers (digits, "-"; kept with their digit count so echoes keep their
//               leading zeros), texts in quotation marks with backslash escapes (b n e g
//               s x, h + two hex digits, any other character for itself), a modifier
//               character in front of a number or text. At most 128.
//   checksum    with "&", the last number is the byte sum modulo 256 of everything after
//               "(" up to and including the blank before it.
// Every syntax error drops only the current message, answers a broadcast error reply of
// code 10 "Syntax Error: <reason>[: <value>]" and keeps the port open.
//
// IPC flag word of a parsed message: 1 reply, 2 query, 16 acknowledge wanted, 32
// broadcast, 64 checksum present, 128 "#" marker. Parameter flags: 0x40 number, low
// bits its digit count, 0x20 "no blank came before it".
//
// Decisions where the protocol leaves room:
//  - Text parameters are limited to 4095 bytes (what one IPC message can carry); a
//    longer text is a syntax error "text buffer overflow", so a peer streaming an endless
//    text cannot grow the front-end's memory.
//  - A number must be an optional "-" and up to 10 digits in the int range ("invalid
//    number" otherwise).
//  - A header with anything but the flag characters and two numbers is "invalid header".
//  - An error reply goes to the request's source address (65535 when it had none).
//  - Error codes of the parser's own replies: 116 "Invalid user name or password",
//    3 "Missing user/password or quotes" and notification errors, 4 "No parameters
//    required", 117 for commands the port's remote access refuses. Replies, "FYI" and
//    "ERR" a peer sends are accepted and dropped whatever the port's remote access, so
//    two linked projectors never answer each other's errors with errors.
//  - A header or number token holds at most 49 characters: the 50th is "buffer
//    overflow: 50".
//  - "NOT" registers this connection for change notifications: each parameter is a
//    quoted control code, with modifier U to unregister instead ((NOT "BRI" U"LMP")).
//    A change of a registered control is sent as a reply, "(BRI!050)".
//  - A received "KEY"+"BKEY" change is broadcast on the port as (65535 <own> KEY <code>).
//  - The inactivity limit of a logged-in user (3600 s) is measured on the clock given to
//    the constructor (a process-wide low-resolution clock by default).
//
// Class-wide: the projector's own address and the routing mode, shared by every parser.
// Thread contract: the serial handler's loop thread only, like its port and link.

#include <list>
#include <set>
#include <string>

#include "EError.h"
#include "ascii/CSerialParser.h"
#include "log/ILog.h"
#include "time/CTimer.h"
#include "time/IMonotonicClock.h"

class CEventLink;
class CSerialHandler;
class CSecurityManager;

// Which ports receive a message that arrived on another one (RxdPreProcessMsg).
enum ENetworkRouting : int {
    ROUTING_SERIAL_PAIR = 0,     // PRTA <-> PRTB
    ROUTING_SERIAL_ALL = 1,      // among PRTA, PRTB, PRTC
    ROUTING_SERIAL_NETWORK = 2,  // PRTA, PRTB <-> Ethernet
    ROUTING_ALL = 3,             // every port to every other (TCP clients included)
};

class CVeltraneSerialParser : public CSerialParser {
public:
    static constexpr unsigned int kBufferSize = 2148;
    static constexpr unsigned int kTokenSize = 50;
    static constexpr unsigned int kMaxParameters = 128;
    static constexpr unsigned int kMaxTextLength = 4095;
    static constexpr unsigned int kLoginTimeoutMs = 3600u * 1000u;
    static constexpr unsigned int kCommandTimeoutMs = 15000;
    static constexpr unsigned int kLongRequestTimeoutMs = 210000;
    static constexpr unsigned char kOwnPortBit = 64;
    static constexpr uint16_t kBroadcastAddress = 65535;
    static constexpr uint16_t kThisProjectorAddress = 65534;  // held as it is until the message is complete
    static constexpr long kAddressLimit = 1024;               // addresses of projectors are below it
    static constexpr const char* kDefaultUser = "Default User";

    // Message flag bits of the ASCII protocol.
    enum EAsciiFlags : uint16_t {
        ASCII_REPLY = 1,
        ASCII_QUERY = 2,
        ASCII_ACK_WANTED = 16,
        ASCII_BROADCAST = 32,
        ASCII_CHECKSUM = 64,
        ASCII_MARKER = 128,
    };

    // link, handler and port must outlive the parser; handler may be null (no relaying);
    // clock null means a process-wide low-resolution clock.
    CVeltraneSerialParser(CEventLink* link, CSerialHandler* handler, CCommPort* port, ILog& log,
                          const IMonotonicClock* clock = nullptr);
    ~CVeltraneSerialParser() override;

    ESerialProtocol GetProtocol() const override { return m_protocol; }
    EParseResult ProcessData() override;
    bool RelayMessage(const unsigned char* text, int length) override;
    void ProcessErrors(const std::string& report) override;
    bool IsSelectable() const override { return !m_closed && GetPort().GetFd() >= 0; }
    void HandleNotification(const CIpcMessage& notification) override;
    void UpdateRemoteAccess(int access) override { m_remoteAccess = access; }
    void SetProtocol(ESerialProtocol protocol) override { m_protocol = protocol; }
    void BroadcastKey(int key) override;

    // Reads the port and feeds every byte to the state machine.
    EParseResult UpdateRxd();
    // Feeds bytes directly (what UpdateRxd does with what it read); for tests and fuzzing.
    EParseResult Feed(const unsigned char* bytes, size_t count);

    // Formats message; writes it to the own port when portMask has bit 64. Returns the
    // formatted length (the text is then in GetTransmitText()).
    int Send(unsigned char portMask, const CIpcMessage* message);
    const std::string& GetTransmitText() const { return m_transmit; }
    void SendAck();
    void SendNak();
    void SendError(ELogLevel level, EError error, const std::string& text, const CIpcMessage* request);
    void SendErrorBroadcast(ELogLevel level, EError error, const std::string& text);
    void SendSerialError(EError error, const std::string& text, const CIpcMessage& request);

    void SetSecurityManager(CSecurityManager* security) { m_security = security; }
    void SetDefaultAccessGroup(int level);
    int GetAccessLevel() const { return m_accessLevel; }
    const std::string& GetUserName() const { return m_user; }
    EError GetLastError() const { return m_lastError; }
    // The codes this connection asked to be told about ("NOT").
    const std::set<std::string>& GetNotifyCodes() const { return m_notifyCodes; }
    // Set after a write failed: the handler removes a closed parser.
    bool IsClosed() const { return m_closed; }

    static void UpdateAddress(int address) { s_address = address; }
    static int GetAddress() { return s_address; }
    static void UpdateRouting(ENetworkRouting routing) { s_routing = routing; }
    static ENetworkRouting GetRouting() { return s_routing; }
    // The ports a message arriving on port `from` is relayed to under `routing`.
    static unsigned char RouteMask(ENetworkRouting routing, unsigned char from);

protected:
    // Relays what is not for this projector alone; false when the message is for others.
    virtual bool RxdPreProcessMsg(CIpcMessage& message);
    virtual bool RxdProcessMsg(CIpcMessage& message);

private:
    enum EState { EMPTY, HEADER, CODE, SUBCODE, PARAM_START, NUMBER, TEXT, ESCAPE, HEX1, HEX2 };

    EParseResult FeedByte(unsigned char c);
    void StartMessage();
    void Drop();
    EParseResult HandleParamStart(unsigned char c);
    EParseResult SyntaxError(const std::string& reason, int value);
    EParseResult ParseHeader();
    // The projector's address may change while a message arrives in pieces, so the header's
    // references to it are resolved once, against the address when the message is complete.
    void ResolveOwnAddress(CIpcMessage& message) const;
    EParseResult AddNumber();
    EParseResult AddText();
    EParseResult CompleteMessage();

    bool ExtCommand(CIpcMessage& message);
    bool ExtRequest(CIpcMessage& message);
    bool ExtReply(const CIpcMessage& message);
    bool HandleUserLogin(CIpcMessage& message);
    void SetUser(const std::string& user);
    std::string HandleNotificationRequests(const CIpcMessage& message);
    void SendControllerError(EError error, const CIpcMessage& reply, const CIpcMessage& request);
    // Sends a reply (changed into the ASCII reply to `request` in place) on this port.
    void SendBack(CIpcMessage& reply, const CIpcMessage& request);
    bool Write(const std::string& text);
    void Close(const std::string& reason);

    CEventLink* m_link;
    CSerialHandler* m_handler;
    ILog& m_log;
    CSecurityManager* m_security = nullptr;
    ESerialProtocol m_protocol = PROTOCOL_ASCII;
    int m_remoteAccess = 1;
    bool m_closed = false;

    // Receive state.
    EState m_state = EMPTY;
    unsigned char m_input[kBufferSize];
    CIpcMessage m_message;  // the one being parsed, then handled
    std::string m_token;
    std::string m_text;
    unsigned char m_modifier = 0;
    bool m_blankBefore = false;
    bool m_afterCode = false;
    bool m_afterSubcode = false;
    bool m_textAfterEscape = false;
    unsigned char m_hexHigh = 0;
    uint8_t m_checksum = 0;
    uint8_t m_savedChecksum = 0;
    uint8_t m_lastNumberChecksum = 0;
    bool m_lastParamIsNumber = false;
    bool m_sourceGiven = false;

    std::string m_transmit;
    // What goes to the controller and comes back, kept from one message to the next so
    // that handling one allocates nothing once they have grown.
    CIpcMessage m_request;
    CIpcMessage m_reply;
    std::list<CIpcMessage> m_replies;

    // Session.
    std::string m_user = kDefaultUser;
    // Whether m_user is someone other than the default user: asked for every message, so
    // kept instead of comparing the names each time (SetUser keeps the two together).
    bool m_loggedIn = false;
    int m_defaultAccessGroup;
    int m_accessLevel;
    CTimer m_inactivity;
    EError m_lastError = ERR_NONE;
    std::set<std::string> m_notifyCodes;

    static int s_address;
    static ENetworkRouting s_routing;
};
