// Splitting a NUL-framed byte stream however it arrives, and the cap on an unterminated
// tail.

#include <gtest/gtest.h>

#include <deque>
#include <string>

#include "jsonrpc/NulFramer.h"

using Messages = std::deque<std::string>;

TEST(CNulFramerTest, StreamSplitAnywhereGivesTheSameMessages) {
    const std::string stream("{\"a\":1}\0\0[2,3]\0tail", 19);
    for (size_t first = 0; first <= stream.size(); ++first) {
        for (size_t second = first; second <= stream.size(); ++second) {
            CNulFramer framer;
            Messages messages;
            EXPECT_TRUE(framer.Add(stream.data(), first, messages));
            EXPECT_TRUE(framer.Add(stream.data() + first, second - first, messages));
            EXPECT_TRUE(framer.Add(stream.data() + second, stream.size() - second, messages));
            EXPECT_EQ(messages, (Messages{"{\"a\":1}", "", "[2,3]"})) << first << "," << second;
            EXPECT_EQ(framer.GetPendingSize(), 4u);
        }
    }
}

TEST(CNulFramerTest, TailIsKeptUntilItsNulArrives) {
    CNulFramer framer;
    Messages messages;
    EXPECT_TRUE(framer.Add("ab", 2, messages));
    EXPECT_TRUE(messages.empty());
    EXPECT_TRUE(framer.Add("c\0d", 3, messages));
    EXPECT_EQ(messages, (Messages{"abc"}));
    framer.Clear();
    EXPECT_TRUE(framer.Add("\0", 1, messages));
    EXPECT_EQ(messages, (Messages{"abc", ""}));
    EXPECT_TRUE(framer.Add(nullptr, 5, messages));
    EXPECT_EQ(framer.GetPendingSize(), 0u);
}

TEST(CNulFramerTest, TailPastTheCapIsDroppedButEndedMessagesAreNot) {
    CNulFramer framer(4);
    Messages messages;
    EXPECT_TRUE(framer.Add("123", 3, messages));
    EXPECT_TRUE(framer.Add("4", 1, messages));  // exactly at the cap
    EXPECT_FALSE(framer.Add("5", 1, messages));
    EXPECT_EQ(framer.GetPendingSize(), 0u);
    EXPECT_FALSE(framer.Add("long message\0tail!", 18, messages));
    EXPECT_EQ(messages, (Messages{"long message"}));  // only the tail counts against the cap
    EXPECT_EQ(framer.GetPendingSize(), 0u);
    EXPECT_TRUE(framer.Add("ok\0", 3, messages));
    EXPECT_EQ(messages.back(), "ok");
}
