#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CException.h"
#include "log/CLogBuffer.h"
#include "log/CLogComposite.h"
#include "log/CLogger.h"

namespace {

// Appends "<tag>:<line>" to a journal shared by several sinks, to see the order of writes.
class CJournalSink : public ILogFile {
public:
    CJournalSink(std::string tag, std::vector<std::string>& journal) : m_tag(std::move(tag)), m_journal(journal) {}
    void Write(const std::string& line, ELogLevel, EFyiCode) override { m_journal.push_back(m_tag + ":" + line); }

private:
    std::string m_tag;
    std::vector<std::string>& m_journal;
};

class CThrowingSink : public ILogFile {
public:
    void Write(const std::string&, ELogLevel, EFyiCode) override { THROW_EXCEPTION("sink is broken"); }
};

TEST(CLogComposite, TakesTwoToSixNonNullSinks) {
    CLogBuffer a(1), b(1), c(1), d(1), e(1), f(1), g(1);
    EXPECT_THROW(CLogComposite({&a}), CException);
    EXPECT_NO_THROW(CLogComposite({&a, &b}));
    EXPECT_NO_THROW(CLogComposite({&a, &b, &c, &d, &e, &f}));
    EXPECT_THROW(CLogComposite({&a, &b, &c, &d, &e, &f, &g}), CException);
    EXPECT_THROW(CLogComposite({&a, nullptr, &b}), CException);
}

TEST(CLogComposite, WritesEveryLineToEachSinkInOrder) {
    std::vector<std::string> journal;
    CJournalSink first("1", journal), second("2", journal), third("3", journal);
    CLogComposite composite({&first, &second, &third});
    composite.Write("x", LOG_LEVEL_INFO, FYI_GENERAL);
    composite.Write("y", LOG_LEVEL_INFO, FYI_GENERAL);
    EXPECT_EQ(journal, (std::vector<std::string>{"1:x", "2:x", "3:x", "1:y", "2:y", "3:y"}));
}

TEST(CLogComposite, ThrowingMemberDoesNotKeepLineFromOthers) {
    CLogBuffer before(2), after(2);
    CThrowingSink broken;
    CLogComposite composite({&before, &broken, &after});
    EXPECT_THROW(composite.Write("direct", LOG_LEVEL_ERROR, FYI_GENERAL), CException);
    EXPECT_EQ(before.GetNumEntries(), 1u);
    EXPECT_EQ(after.GetNumEntries(), 1u);

    CLogger logger;
    logger.Initialize("composite");
    logger.AddLogRule(LOG_LEVEL_ERROR, &composite);
    EXPECT_NO_THROW(logger.LogError("through logger"));
    ASSERT_EQ(after.GetNumEntries(), 2u);
    EXPECT_EQ(before.GetLine(1), after.GetLine(1));
}

}  // namespace
