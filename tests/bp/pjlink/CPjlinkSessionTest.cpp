// A PJLink session as bytes in and out: the greeting and the password digest, framing at
// carriage returns whatever the segments, line limits and malformed lines.

#include <gtest/gtest.h>

#include <vector>

#include "CPjlinkSession.h"
#include "crypto/NCrypto.h"

namespace {

// Answers POWR and NAME like a projector in standby named "Hall"; records every call.
struct SProjector : IPjlinkCommands {
    std::string Execute(char pjlinkClass, const std::string& command, const std::string& parameter) override {
        calls.push_back(std::string(1, pjlinkClass) + command + " " + parameter);
        if (command == "POWR") {
            return parameter == "?" ? "0" : "OK";
        }
        return command == "NAME" && parameter == "?" ? "Hall" : "ERR1";
    }
    std::vector<std::string> calls;
};

std::string Feed(CPjlinkSession& session, const std::string& bytes, uint64_t nowMs = 0) {
    return session.Receive(bytes.data(), bytes.size(), nowMs);
}

}  // namespace

TEST(CPjlinkSession, APasswordIsCheckedOnceThroughTheDigestOfTheChallenge) {
    EXPECT_EQ(NCrypto::Md5Hex("a572f60cpassword"), "e3d97429adffa11bce1f7275813d4bde");
    SProjector projector;
    CPjlinkSession open(projector, "", "", 0);
    EXPECT_EQ(open.Greeting(), "PJLINK 0\r");
    EXPECT_EQ(Feed(open, "%1POWR ?\r"), "%1POWR=0\r");

    CPjlinkSession guarded(projector, "password", "a572f60c", 0);
    EXPECT_EQ(guarded.Greeting(), "PJLINK 1 a572f60c\r");
    EXPECT_EQ(Feed(guarded, "e3d97429adffa11bce1f7275813d4bde%1POWR 1\r%1NAME ?\r"), "%1POWR=OK\r%1NAME=Hall\r");

    // A wrong digest, none, or a password the owner could not read: refused and closed.
    const struct {
        const char* password;
        const char* line;
    } refusals[] = {{"password", "e3d97429adffa11bce1f7275813d4bdf%1POWR ?\r"},
                    {"password", "%1POWR ?\r"},
                    {CPjlinkSession::kRefuseAll.c_str(), "e3d97429adffa11bce1f7275813d4bde%1POWR ?\r"}};
    for (const auto& refusal : refusals) {
        const std::string password = refusal.password[0] ? refusal.password : CPjlinkSession::kRefuseAll;
        CPjlinkSession refused(projector, password, "a572f60c", 0);
        EXPECT_EQ(refused.Greeting(), "PJLINK 1 a572f60c\r");
        EXPECT_EQ(Feed(refused, std::string(refusal.line) + "%1POWR ?\r"), "PJLINK ERRA\r") << refusal.line;
        EXPECT_TRUE(refused.IsClosed());
        EXPECT_EQ(refused.IsRefused(), password != CPjlinkSession::kRefuseAll) << "a guess counts, an unread password not";
    }
    EXPECT_EQ(projector.calls, (std::vector<std::string>{"1POWR ?", "1POWR 1", "1NAME ?"}));
}

TEST(CPjlinkSession, LinesAreFramedAtCarriageReturnsWhateverTheSegments) {
    const std::string stream = "%1POWR ?\r%2NAME ?\r%1LAMP ?\r";
    const std::string answers = "%1POWR=0\r%2NAME=Hall\r%1LAMP=ERR1\r";
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        SProjector projector;
        CPjlinkSession session(projector, "", "", 0);
        std::string out = Feed(session, stream.substr(0, cut));
        out += Feed(session, stream.substr(cut));
        EXPECT_EQ(out, answers) << cut;
    }
}

TEST(CPjlinkSession, MalformedOrOverlongLinesAreAnsweredWhereTheirCommandCanBeRead) {
    const struct {
        std::string line;
        std::string answer;
    } cases[] = {
        {"%1NAME " + std::string(128, 'x') + "\r", "%1NAME=ERR1\r"},  // 136 bytes: taken
        {"%1NAME " + std::string(129, 'x') + "\r", "%1NAME=ERR2\r"},  // 137 bytes
        {std::string("%1POWR \x01\xFF\r", 10), "%1POWR=ERR2\r"},
        {"%3POWR ?\r", "%3POWR=ERR1\r"},
        {"%1powr ?\r", "%1powr=ERR1\r"},
        {"%1POWR?\r", "%1POWR=ERR1\r"},
        {"%1NAME ?\r\n", "%1NAME=Hall\r"},  // CR LF: the LF is no part of the next line
        {"%1PO\r", ""},
        {"POWR ?\r", ""},
        {std::string("%1\x01WR ?\r"), ""},
    };
    for (const auto& test : cases) {
        SProjector projector;
        CPjlinkSession session(projector, "", "", 0);
        EXPECT_EQ(Feed(session, test.line), test.answer) << test.line.substr(0, 20);
        EXPECT_EQ(Feed(session, "%1POWR ?\r"), "%1POWR=0\r");  // the next line is whole again
    }
}

TEST(CPjlinkSession, OnlyCompleteAuthenticatedCommandsKeepASessionFromIdling) {
    SProjector projector;
    CPjlinkSession session(projector, "", "", 1000);
    EXPECT_FALSE(session.IsIdle(1000 + CPjlinkSession::kIdleMs - 1));
    Feed(session, "%1PO", 20000);  // trickled bytes count from the greeting
    EXPECT_TRUE(session.IsIdle(1000 + CPjlinkSession::kIdleMs));
    Feed(session, "WR ?\r", 20000);
    EXPECT_FALSE(session.IsIdle(20000 + CPjlinkSession::kIdleMs - 1));
    EXPECT_TRUE(session.IsIdle(20000 + CPjlinkSession::kIdleMs));

    CPjlinkSession guarded(projector, "password", "a572f60c", 1000);
    Feed(guarded, "e3d97429adffa11bce1f7275813d4bde", 20000);  // the digest alone is no command
    EXPECT_TRUE(guarded.IsIdle(1000 + CPjlinkSession::kIdleMs));
}
