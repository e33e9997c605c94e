#include <gtest/gtest.h>
#include <syslog.h>

#include <string>
#include <thread>
#include <vector>

#include "Support/SysLogEntry.h"
#include "testing/faults/SyslogCapture.h"

namespace {

class SysLogEntryTest : public testing::Test {
  protected:
    SyslogCapture syslog_;
};

TEST_F(SysLogEntryTest, TextIsSentWhenTheEntryIsDestroyed) {
    {
        SysLogEntry entry("ZynServer", SysLogEntry::kError);
        entry << "count " << 5 << " of " << std::string("ten");
        EXPECT_TRUE(SyslogCapture::Take().empty());
    }
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0],
              (SyslogRecord{"ZynServer", LOG_PID | LOG_CONS, LOG_USER, LOG_ERR, "count 5 of ten"}));
    EXPECT_FALSE(SyslogCapture::IsOpen());
}

TEST_F(SysLogEntryTest, EntryWithoutTextSendsNothing) {
    { const SysLogEntry entry("ZYNAPI", SysLogEntry::kError); }
    {
        SysLogEntry entry("ZYNAPI", SysLogEntry::kError);
        entry << "";
    }
    EXPECT_TRUE(SyslogCapture::Take().empty());
    EXPECT_FALSE(SyslogCapture::IsOpen());
}

TEST_F(SysLogEntryTest, TextIsNeverAFormat) {
    { SysLogEntry("ZYNAPI", SysLogEntry::kError) << "%s%n%d 100%"; }
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "%s%n%d 100%");
}

TEST_F(SysLogEntryTest, LevelsHaveTheirPriorities) {
    for (const int level : {0, 1, 2, 3, 4, -1, 1000}) {
        SysLogEntry("ZYNAPI", level) << level;
    }
    std::vector<int> priorities;
    for (const SyslogRecord& record : SyslogCapture::Take()) {
        priorities.push_back(record.priority);
    }
    EXPECT_EQ(priorities, (std::vector<int>{LOG_NOTICE, LOG_ERR, LOG_WARNING, LOG_INFO, LOG_ERR,
                                            LOG_ERR, LOG_ERR}));
}

TEST_F(SysLogEntryTest, EntriesOfThreadsKeepTheirIdentities) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const std::string name = "ident" + std::to_string(i);
            for (int count = 0; count < 100; ++count) {
                SysLogEntry(name, SysLogEntry::kError) << name;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    EXPECT_EQ(records.size(), 400U);
    for (const SyslogRecord& record : records) {
        ASSERT_EQ(record.ident, record.text);
    }
}

}  // namespace
