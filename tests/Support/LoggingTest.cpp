#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Support/Logging.h"
#include "Support/ValidationException.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/TraceLines.h"
#include "testing/faults/LibcFaults.h"
#include "testing/faults/SyslogCapture.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The mode is read once per process; tests need more than one.
void ForgetMode() { LoggingTestAccess::SetMode(Logging::kDiagnosticModeUnknown); }

class LoggingTest : public testing::Test {
  public:
    LoggingTest(const LoggingTest&) = delete;
    LoggingTest& operator=(const LoggingTest&) = delete;

  protected:
    LoggingTest() { ForgetMode(); }
    ~LoggingTest() override { ForgetMode(); }

    void MakeDirectory() { static_cast<void>(directory_.MakeDirectory("temp/ZYN")); }

    [[nodiscard]] std::string Trace() const { return ReadFile(path_); }

    // What the lines say; every one must be stamped.
    [[nodiscard]] std::vector<std::string> Lines() const { return TraceLineTexts(Trace()); }

    static std::vector<std::string> SystemLog() {
        std::vector<std::string> texts;
        for (const SyslogRecord& record : SyslogCapture::Take()) {
            EXPECT_EQ(record.priority, LOG_ERR);
            EXPECT_EQ(record.ident, "") << "no openlog precedes these";
            texts.push_back(record.text);
        }
        return texts;
    }

    TempDirectory directory_;
    EnvironmentVariable home_{"KORVA_VANTOREL_DIR", directory_.Path()};
    EnvironmentVariable mode_{"DIAGNOSTIC_MODE", std::nullopt};
    SyslogCapture syslog_;
    const std::string path_ = directory_ / "temp/ZYN/trace.txt";
};

TEST_F(LoggingTest, OnlyExactlyOneTurnsTheModeOn) {
    EXPECT_EQ(Logging::GetDiagnosticMode(), 1);
    for (const char* value : {"0", "", "yes", "1 ", " 1", "11", "2"}) {
        ForgetMode();
        mode_.Set(value);
        EXPECT_EQ(Logging::GetDiagnosticMode(), 1) << value;
    }
    ForgetMode();
    mode_.Set("1");
    EXPECT_EQ(Logging::GetDiagnosticMode(), 2);
}

TEST_F(LoggingTest, ModeIsReadOnce) {
    EXPECT_EQ(Logging::GetDiagnosticMode(), 1);
    mode_.Set("1");
    EXPECT_EQ(Logging::GetDiagnosticMode(), 1);
}

TEST_F(LoggingTest, EndOfLineWritesTheStampedText) {
    MakeDirectory();
    Logging log;
    log << "abc" << 5;
    log << std::endl;
    EXPECT_THAT(Lines(), ElementsAre("abc5"));
    EXPECT_TRUE(Trace().ends_with("ZYNCLIENT: abc5\n"));
}

TEST_F(LoggingTest, OtherManipulatorsDoNothing) {
    MakeDirectory();
    Logging log;
    log << "abc";
    log << std::flush;
    log << std::ends;
    EXPECT_THAT(ListDirectory(directory_ / "temp/ZYN"), IsEmpty());
    EXPECT_EQ(log.str(), "abc") << "neither applied nor stored";
}

TEST_F(LoggingTest, EndOfLineOnThePlainStreamWritesNothingUntilSync) {
    MakeDirectory();
    Logging log;
    log << "abc" << std::endl;
    EXPECT_THAT(ListDirectory(directory_ / "temp/ZYN"), IsEmpty());
    log.Sync();
    EXPECT_THAT(Lines(), ElementsAre("abc"));
}

TEST_F(LoggingTest, SecondLineOfAnObjectRepeatsTheFirst) {
    MakeDirectory();
    Logging log;
    log << "a";
    log << std::endl;
    log << "b";
    log << std::endl;
    EXPECT_THAT(Lines(), ElementsAre("a", "a", "<no stamp>b"))
        << "Kept as is: an object serves one line, its text stays";
    EXPECT_TRUE(Trace().ends_with("ZYNCLIENT: a\nb\n"));
}

TEST_F(LoggingTest, SyncClearsTheStreamsErrors) {
    MakeDirectory();
    Logging log;
    log.setstate(std::ios::failbit);
    log.Sync();
    EXPECT_TRUE(log.good());
}

TEST_F(LoggingTest, MissingDirectoryYieldsThreeSystemLogLines) {
    Logging log;
    log << "abc";
    EXPECT_NO_THROW(log << std::endl);
    EXPECT_THAT(SystemLog(), ElementsAre("Error: trace.txt file open", "Error: trace.txt file",
                                         "Error: trace.txt file close"));
}

TEST_F(LoggingTest, FailedWriteIsWrittenToTheSystemLog) {
    MakeDirectory();
    const LibcFault fault(LibcCall::kWrite, ENOSPC);
    Logging::Write("text\n");
    EXPECT_THAT(SystemLog(), ElementsAre("Error: trace.txt file write", "Error: trace.txt file"));
}

TEST_F(LoggingTest, ShortWriteIsNotRepeated) {
    MakeDirectory();
    const LibcFault fault(LibcCall::kWrite, LibcFault::kHalfCount);
    Logging::Write("12345678");
    EXPECT_EQ(fault.Calls(), 1U);
    EXPECT_EQ(Trace(), "1234");
    EXPECT_THAT(SystemLog(), IsEmpty());
}

TEST_F(LoggingTest, FailedCloseIsWrittenToTheSystemLog) {
    MakeDirectory();
    const LibcFault fault(LibcCall::kClose, EIO);
    Logging::Write("text\n");
    EXPECT_THAT(SystemLog(), ElementsAre("Error: trace.txt file close"));
    EXPECT_EQ(Trace(), "text\n");
}

TEST_F(LoggingTest, FileIsReadableAndWritableByAllWhateverTheUmask) {
    MakeDirectory();
    const mode_t before = umask(077);
    Logging::Write("text\n");
    EXPECT_EQ(umask(before), 077U) << "the mask is put back";
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0666U);
}

TEST_F(LoggingTest, DirectoryIsExpandedForEveryLine) {
    MakeDirectory();
    Logging::Write("one\n");
    const TempDirectory other;
    static_cast<void>(other.MakeDirectory("temp/ZYN"));
    home_.Set(other.Path() + "/");
    Logging::Write("two\n");
    EXPECT_EQ(Trace(), "one\n");
    EXPECT_EQ(ReadFile(other / "temp/ZYN/trace.txt"), "two\n");
}

TEST_F(LoggingTest, EachCheckThatFailsAddsExactlyOneLineWhenTheModeIsOn) {
    MakeDirectory();
    mode_.Set("1");
    EXPECT_THROW(Validation2Exception::CheckLogic(false, "wrong", "File.h", 12), std::logic_error);
    EXPECT_THAT(Lines(), ElementsAre("Extended exception:File.h:12-Bad logic:wrong"));
    Validation2Exception::CheckLogic(true, "right", "File.h", 13);
    EXPECT_EQ(Lines().size(), 1U);
}

TEST_F(LoggingTest, FailingChecksWriteNothingWhenTheModeIsOff) {
    MakeDirectory();
    EXPECT_THROW(Validation2Exception::CheckLogic(false, "wrong", "File.h", 12), std::logic_error);
    LogDiagnostic("nothing");
    EXPECT_THAT(ListDirectory(directory_ / "temp/ZYN"), IsEmpty());
}

TEST_F(LoggingTest, CheckIsRaisedEvenIfItCannotBeLogged) {
    mode_.Set("1");
    EXPECT_THROW(Validation2Exception::CheckOSCall(false, "wrong", "File.h", 12),
                 std::runtime_error);
    EXPECT_EQ(SystemLog().size(), 3U);
}

TEST_F(LoggingTest, LogDiagnosticWritesOneLineWhenTheModeIsOn) {
    MakeDirectory();
    mode_.Set("1");
    LogDiagnostic("one line");
    EXPECT_THAT(Lines(), ElementsAre("one line"));
}

TEST_F(LoggingTest, LinesOfThreadsStayWhole) {
    MakeDirectory();
    mode_.Set("1");
    constexpr int kThreads = 4;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([i] {
            for (int line = 0; line < 50; ++line) {
                LogDiagnostic(std::string(200, static_cast<char>('a' + i)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = Lines();
    EXPECT_EQ(lines.size(), 200U);
    for (const std::string& line : lines) {
        ASSERT_EQ(line, std::string(200, line.front()));
    }
}

}  // namespace
