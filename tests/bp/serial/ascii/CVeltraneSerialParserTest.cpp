// The ASCII command parser against a real controller: syntax, checksums, addresses,
// formatting, error replies, login and notifications. The parser's port is one end of a
// socket pair; the test reads what it sends from the other end.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "ControllerFixture.h"
#include "ManualClock.h"
#include "ascii/CVeltraneSerialParser.h"
#include "security/CSecurityManager.h"

namespace {

class CParserTest : public CControllerFixture {
protected:
    CParserTest() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        port = std::make_unique<CCommPort>(PORT_A, fds[0], "test-port");
        parser = std::make_unique<CVeltraneSerialParser>(link.get(), nullptr, port.get(), log, &clock);
        CVeltraneSerialParser::UpdateAddress(0);
        CVeltraneSerialParser::UpdateRouting(ROUTING_SERIAL_PAIR);
    }
    ~CParserTest() override {
        parser.reset();
        port.reset();
        close(fds[1]);
    }

    // Everything the parser has sent so far (it answers before Feed returns).
    std::string Output() {
        std::string out;
        char buffer[4096];
        ssize_t n;
        while ((n = recv(fds[1], buffer, sizeof buffer, MSG_DONTWAIT)) > 0) {
            out.append(buffer, static_cast<size_t>(n));
        }
        return out;
    }

    std::string Exchange(const std::string& input) {
        parser->Feed(reinterpret_cast<const unsigned char*>(input.data()), input.size());
        return Output();
    }

    static std::string WithChecksum(const std::string& body) {
        unsigned sum = 0;
        for (const char c : body) {
            sum += static_cast<unsigned char>(c);
        }
        char checksum[8];
        snprintf(checksum, sizeof checksum, "%03u", sum % 256);
        return "(" + body + checksum + ")";
    }

    int fds[2] = {-1, -1};
    CManualClock clock{1000};
    std::unique_ptr<CCommPort> port;
    std::unique_ptr<CVeltraneSerialParser> parser;
};

}  // namespace

TEST_F(CParserTest, WorkedErrorReplyComesOutByteForByte) {
    CVeltraneSerialParser::UpdateAddress(1);
    EXPECT_EQ(Exchange("(1024 KEY 12)"), "(65535 00001 ERR00010 \"Syntax Error: dest address out of range: 1024\")");
    EXPECT_EQ(Exchange("(1023 KEY 12)"), "");  // in range, for another projector: dropped quietly
}

TEST_F(CParserTest, QueriesAndCommandsReachTheController) {
    EXPECT_EQ(Exchange("(BRI?)"), "(BRI!050)");
    EXPECT_EQ(Exchange("(BRI 70)"), "");  // a plain command is answered only when asked to
    EXPECT_EQ(Exchange("(#BRI 71)"), "(#BRI!071)");
    EXPECT_EQ(Exchange("($BRI 72)"), "$");
    EXPECT_EQ(Exchange("(NET+PORT?)"), "(NET+PORT!3002)");
    EXPECT_EQ(Exchange("(NAM \"Booth\\s7\")(NAM?)"), "(NAM!\"Booth\\s7\")");
    EXPECT_EQ(Exchange("(INP? L)"),
              "(INP!L001 001 00001 \"HDMI\")(INP!L001 000 00002 \"DVI\")(INP!L000 001 00003 \"SDI\")"
              "(INP!L000 000 00111 \"--END--\")");
}

TEST_F(CParserTest, ControllerRefusalsBecomeErrorReplies) {
    EXPECT_EQ(Exchange("(XXX 1)"), "(65535 ERR00101 \"System Error: XXX: Control Not Found\")");
    EXPECT_EQ(Exchange("($RDO 4)"), "(65535 ERR00105 \"System Error: RDO: This control is read-only\")^");
    EXPECT_EQ(parser->GetLastError(), ERR_DISABLED_CONTROL);
    EXPECT_EQ(Exchange("(00001 00002 FAC 1)"), "");  // not for this projector (address 0)
    CVeltraneSerialParser::UpdateAddress(1);
    EXPECT_EQ(Exchange("(00001 00002 FAC 1)"), "(00002 00001 ERR00117 \"System Error: FAC: Invalid Access Group\")");
}

TEST_F(CParserTest, OwnAddressIsTheOneInForceWhenTheMessageCompletes) {
    Exchange("(65534 FAC");  // "this projector", while its address is 0
    CVeltraneSerialParser::UpdateAddress(1);
    EXPECT_EQ(Exchange(" 1)"), "(65535 00001 ERR00117 \"System Error: FAC: Invalid Access Group\")");
    Exchange("(00003 00002 FAC");  // from 2 to 3: for another projector, for now
    CVeltraneSerialParser::UpdateAddress(2);
    EXPECT_EQ(Exchange(" 1)"), "(00002 00002 ERR00117 \"System Error: FAC: Invalid Access Group\")");
}

TEST_F(CParserTest, EverySplitOfTheStreamGivesTheSameAnswers) {
    const std::string stream = "noise(BRI 080)(#BRI?)(SUMM)(NAM \"a\\(b\\)\")(NAM?)";
    const std::string expected = Exchange(stream);
    ASSERT_EQ(expected, "(#BRI!080)(65535 ERR00010 \"Syntax Error: Invalid code\")(NAM!\"a\\(b\\)\")");
    for (size_t split = 0; split <= stream.size(); ++split) {
        Exchange("(BRI 50)(NAM \"x\")");
        parser->Feed(reinterpret_cast<const unsigned char*>(stream.data()), split);
        parser->Feed(reinterpret_cast<const unsigned char*>(stream.data()) + split, stream.size() - split);
        EXPECT_EQ(Output(), expected) << "split at " << split;
    }
}

TEST_F(CParserTest, ChecksumIsTheByteSumUpToTheBlankBeforeIt) {
    CVeltraneSerialParser::UpdateAddress(1);
    // The byte sum of "&00001 00002 KEY 12 " is 213.
    EXPECT_EQ(WithChecksum("&00001 00002 KEY 12 "), "(&00001 00002 KEY 12 213)");
    const std::string reply = Exchange(WithChecksum("&#00001 00002 BRI 33 "));
    // The reply carries a checksum of its own, by the same rule.
    EXPECT_EQ(reply, WithChecksum("&#00002 00001 BRI!033 "));
    EXPECT_EQ(Exchange("(&BRI 33 7)"), "(65535 00001 ERR00010 \"Syntax Error: checksum failed: 7\")");
    EXPECT_EQ(Exchange("(&BRI)"), "(65535 00001 ERR00010 \"Syntax Error: no checksum\")");
    EXPECT_EQ(Exchange("(&BRI \"x\")"), "(65535 00001 ERR00010 \"Syntax Error: checksum not a number\")");
}

TEST_F(CParserTest, SyntaxErrorsDropOnlyTheirMessage) {
    const struct {
        std::string input;
        std::string reason;
    } cases[] = {
        {"(SUMM)", "Invalid code"},
        {"(SST+PRTAX)", "Invalid subcode"},
        {"(" + std::string(49, '0') + "1 BRI)", "buffer overflow: 50"},
        {"(BRI " + std::string(50, '1') + ")", "buffer overflow: 50"},
        {"(NAM \"a(b\")", "escape expected: 40"},
        {"(NAM \"a\nb\")", "escape expected: 10"},
        {"(NAM \"\\hZZ\")", "invalid hex digit: 90"},
        {"(70000 BRI 1)", "dest address out of range: 70000"},
        {"(1 2000 BRI 1)", "source address out of range: 2000"},
        {"(% BRI 1)", "invalid header"},
        {"(BRI 1-2)", "invalid number"},
        {"(BRI 1234567890123456789012345)", "invalid number"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Exchange(c.input + "(BRI?)"), "(65535 ERR00010 \"Syntax Error: " + c.reason + "\")(BRI!050)")
            << c.input;
    }
    std::string many = "(BRI";
    for (int i = 0; i < 129; ++i) {
        many += " 1";
    }
    EXPECT_EQ(Exchange(many + ")"), "(65535 ERR00010 \"Syntax Error: too many parms: 128\")");
    // Codes of fewer than three letters, and unfinished codes, vanish without a word.
    EXPECT_EQ(Exchange("(KE 1)(BR)(SST+PR)(BRI(BRI?)"), "(BRI!050)");
    EXPECT_EQ(Exchange("(BRI \"" + std::string(5000, 'a') + "\")"),
              "(65535 ERR00010 \"Syntax Error: text buffer overflow: 4095\")");
}

TEST_F(CParserTest, FormattingKeepsDigitsSignsAndTheFirstParameterRule) {
    CIpcMessage message;
    message.SetCode("KEY");
    message.SetSubCode("");
    message.AddArg(0, 1, static_cast<EParmFlags>(PARM_NUMBER | 3));
    message.AddArg(1, -5, static_cast<EParmFlags>(PARM_NUMBER | 3));
    message.AddArg(2, 7, static_cast<EParmFlags>(PARM_NUMBER | PARM_CHAR_DELIMITER | 2), 'M');
    message.AddArg(3, std::string("q\"(\\)\x01\x1b"), 0);
    message.AddArg(4, 0, PARM_NUMBER);
    parser->Send(0, &message);
    EXPECT_EQ(parser->GetTransmitText(), "(KEY001 -005M07 \"q\\\"\\(\\\\\\)\\b\\x\" )");
    message.AddArg(0, 1, static_cast<EParmFlags>(PARM_NUMBER | 3), 'D');
    parser->Send(0, &message);
    EXPECT_EQ(parser->GetTransmitText().substr(0, 10), "(KEY D001 ");  // a modifier earns the first blank
    message.SetFlags(CVeltraneSerialParser::ASCII_REPLY);
    parser->Send(0, &message);
    EXPECT_EQ(parser->GetTransmitText().substr(0, 10), "(KEY!D001 ");  // ...but not in a reply
    EXPECT_EQ(Output(), "");  // without bit 64 nothing is written
}

TEST_F(CParserTest, RoutingTableByMode) {
    using P = CVeltraneSerialParser;
    const unsigned char all = PORT_A | PORT_B | PORT_C | PORT_ETHERNET | PORT_USB;
    EXPECT_EQ(P::RouteMask(ROUTING_SERIAL_PAIR, PORT_A), PORT_B);
    EXPECT_EQ(P::RouteMask(ROUTING_SERIAL_PAIR, PORT_C), 0);
    EXPECT_EQ(P::RouteMask(ROUTING_SERIAL_ALL, PORT_B), PORT_A | PORT_C);
    EXPECT_EQ(P::RouteMask(ROUTING_SERIAL_ALL, PORT_ETHERNET), 0);
    EXPECT_EQ(P::RouteMask(ROUTING_SERIAL_NETWORK, PORT_A), PORT_B | PORT_ETHERNET);
    EXPECT_EQ(P::RouteMask(ROUTING_SERIAL_NETWORK, PORT_ETHERNET), PORT_A | PORT_B);
    EXPECT_EQ(P::RouteMask(ROUTING_SERIAL_NETWORK, PORT_C), 0);
    EXPECT_EQ(P::RouteMask(ROUTING_ALL, PORT_C), all & ~PORT_C);
    EXPECT_EQ(P::RouteMask(ROUTING_ALL, PORT_ETHERNET), all);  // other TCP clients too
    EXPECT_EQ(P::RouteMask(ROUTING_ALL, PORT_USB), all & ~PORT_USB);
}

TEST_F(CParserTest, LoginKeepsTheUserForAnHourOfSilence) {
    CSecurityManager security(log, 1000);
    security.AddUser("service", "s3cret", ACCESS_SERVICE);
    parser->SetSecurityManager(&security);
    EXPECT_EQ(Exchange("(UID?)"), "(UID!\"Default User\" 02)");
    EXPECT_EQ(Exchange("(UID \"service\" \"wrong\")"),
              "(65535 ERR00116 \"System Error: Invalid user name or password\")");
    EXPECT_EQ(Exchange("(UID \"service\")"), "(65535 ERR00003 \"System Error: Missing user/password or quotes\")");
    EXPECT_EQ(Exchange("(UID? 1)"), "(65535 ERR00004 \"System Warning: No parameters required\")");
    EXPECT_EQ(Exchange("($UID \"service\" \"s3cret\")(UID?)"), "$(UID!\"service\" 03)");
    for (int message = 0; message < 2; ++message) {  // each message starts the hour again
        clock.AdvanceMs(3599u * 1000u);
        EXPECT_EQ(Exchange("(UID?)"), "(UID!\"service\" 03)");
    }
    clock.AdvanceMs(3601u * 1000u);
    EXPECT_EQ(Exchange("(UID?)"), "(UID!\"Default User\" 02)");
    EXPECT_FALSE(log.Logged("s3cret"));
}

TEST_F(CParserTest, RemoteAccessGatesCommands) {
    parser->UpdateRemoteAccess(REMOTE_READ_ONLY);
    EXPECT_EQ(Exchange("(BRI?)"), "(BRI!050)");
    EXPECT_EQ(Exchange("(BRI 10)"), "(65535 ERR00117 \"System Error: Access denied on this port\")");
    // What a linked projector says back is dropped without a word on every port.
    for (ERemoteAccess access : {REMOTE_READ_ONLY, REMOTE_LOGIN_REQUIRED}) {
        parser->UpdateRemoteAccess(access);
        EXPECT_EQ(Exchange("(BRI!050)(FYI \"warming up\")(65535 ERR00117 \"denied\")"), "") << access;
    }
    parser->UpdateRemoteAccess(REMOTE_FULL);
    EXPECT_EQ(Exchange("(#BRI 10)"), "(#BRI!010)");
}

TEST_F(CParserTest, RegisteredChangesArriveAsReplies) {
    EXPECT_EQ(Exchange("($NOT \"bri\")"), "$");
    EXPECT_EQ(Exchange("(NOT 12)"), "(65535 ERR00003 \"System Error: Notification codes must be quoted\")");
    int value = 80;
    CEventLink other(log, "other");
    ASSERT_EQ(other.SetValue(ACCESS_OPERATOR, "BRI", "", value, false), ERR_NONE);
    const std::list<CIpcMessage> notes = Notes(1);
    ASSERT_EQ(notes.size(), 1u);
    parser->HandleNotification(notes.front());
    EXPECT_EQ(Output(), "(BRI!080)");
    EXPECT_EQ(Exchange("(NOT U\"BRI\")"), "");
    parser->HandleNotification(notes.front());
    EXPECT_EQ(Output(), "");
}

TEST_F(CParserTest, WriteFailureClosesTheParser) {
    close(fds[1]);
    fds[1] = socket(AF_UNIX, SOCK_STREAM, 0);  // keep the fixture's close harmless
    Exchange("(BRI?)");
    EXPECT_TRUE(parser->IsClosed());
    EXPECT_TRUE(log.Logged("Parser send failure - parser will be closed."));
}
