// Tests of what stands in front of the system log in test programs.

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <string>
#include <thread>
#include <vector>

#include "testing/faults/SyslogCapture.h"

extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void __syslog_chk(int priority, int flag, const char* format, ...);
}

namespace {

// NOLINTNEXTLINE(cert-dcl50-cpp): vsyslog takes what only such a function has.
void SendByList(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

TEST(SyslogCaptureTest, KeepsRecordsInOrderWithTheirIdentity) {
    const SyslogCapture capture;
    openlog("first", LOG_PID | LOG_CONS, LOG_USER);
    EXPECT_TRUE(SyslogCapture::IsOpen());
    syslog(LOG_ERR, "%s-%d", "text", 7);
    closelog();
    EXPECT_FALSE(SyslogCapture::IsOpen());
    openlog("second", 0, LOG_DAEMON);
    syslog(LOG_NOTICE, "other");
    closelog();
    const std::vector<SyslogRecord> expected{
        {"first", LOG_PID | LOG_CONS, LOG_USER, LOG_ERR, "text-7"},
        {"second", 0, LOG_DAEMON, LOG_NOTICE, "other"}};
    EXPECT_EQ(SyslogCapture::Take(), expected);
    EXPECT_TRUE(SyslogCapture::Take().empty());
}

TEST(SyslogCaptureTest, WithoutOpenlogTheDefaultsHold) {
    const SyslogCapture capture;
    openlog("gone", LOG_PID, LOG_DAEMON);
    closelog();
    syslog(LOG_WARNING, "plain");
    syslog(LOG_LOCAL3 | LOG_INFO, "own facility");
    const std::vector<SyslogRecord> expected{{"", 0, LOG_USER, LOG_WARNING, "plain"},
                                             {"", 0, LOG_LOCAL3, LOG_INFO, "own facility"}};
    EXPECT_EQ(SyslogCapture::Take(), expected);
}

TEST(SyslogCaptureTest, EveryEntryOfTheLibraryIsCaught) {
    const SyslogCapture capture;
    SendByList(LOG_ERR, "list %d", 1);
    __syslog_chk(LOG_ERR, 1, "checked %d", 2);
    const std::vector<SyslogRecord> expected{{"", 0, LOG_USER, LOG_ERR, "list 1"},
                                             {"", 0, LOG_USER, LOG_ERR, "checked 2"}};
    EXPECT_EQ(SyslogCapture::Take(), expected);
}

TEST(SyslogCaptureTest, LongTextsAndErrnoAreWhole) {
    const SyslogCapture capture;
    const std::string text(5000, 'a');
    errno = ENOENT;
    SendByList(LOG_ERR, "%s %m", text.c_str());
    EXPECT_EQ(errno, ENOENT);
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, text + " No such file or directory");
}

TEST(SyslogCaptureTest, ANewCaptureForgetsWhatCameBefore) {
    syslog(LOG_ERR, "before");
    const SyslogCapture capture;
    EXPECT_TRUE(SyslogCapture::Take().empty());
}

TEST(SyslogCaptureTest, ThreadsLoseNothing) {
    const SyslogCapture capture;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 250; ++k) {
                syslog(LOG_ERR, "record");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(SyslogCapture::Take().size(), 1000U);
}

}  // namespace
