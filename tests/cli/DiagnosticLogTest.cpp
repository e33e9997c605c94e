// The trace that the program writes of itself when DIAGNOSTIC_MODE says so.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cli/ToolFixture.h"
#include "fixtures/TraceLines.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DiagnosticLogTest : public ToolFixture {
  protected:
    DiagnosticLogTest() {
        LogBlock block;
        block.Record(LogRecord(1).Time(0, 0).Message("text"));
        log_.Block(block);
    }

    ProgramResult Export(const std::string& mode) {
        ProgramRun run = Run({"export", "-d", logs_, "-f", "out.txt", "-silent"});
        run.environment.push_back("DIAGNOSTIC_MODE=" + mode);
        run.environment.push_back("ZYN_TEST_SYSLOG_FILE=" + (directory_ / "syslog"));
        run.preloadLibrary = ZYN_SYSLOG_PRELOAD;
        return Finish(run);
    }

    void MakeTraceDirectory() { static_cast<void>(directory_.MakeDirectory("temp/ZYN")); }

    // The lines of the trace without their stamps, which are checked, and without the numbers of
    // source lines.
    [[nodiscard]] std::vector<std::string> Trace() const {
        std::vector<std::string> lines = TraceLineTexts(Content("temp/ZYN/trace.txt"));
        std::transform(lines.begin(), lines.end(), lines.begin(), WithoutSourceLine);
        return lines;
    }

    [[nodiscard]] std::string File(const std::string& name) const { return logs_ + "/" + name; }

    LogWriter log_;
    const std::string logs_ = directory_.MakeDirectory("logs");
};

TEST_F(DiagnosticLogTest, FilesFoundAreListedInReadingOrder) {
    MakeTraceDirectory();
    const std::string content = log_.File();
    WriteFile(File("zynlog-2.txt"), content);
    WriteFile(File("zynlog-10.txt"), content);
    WriteFile(File("zynlog-3.txt"), std::string(300, 'x'));
    const ProgramResult result = Export("1");
    EXPECT_EQ(result.error, kToolBanner);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        Trace(),
        ElementsAre("Total number of files found:2", File("zynlog-10.txt"), File("zynlog-2.txt"),
                    "Total number of bytes:" + std::to_string(2 * content.size() - 512)));
}

TEST_F(DiagnosticLogTest, EmptyListIsListed) {
    MakeTraceDirectory();
    Export("1");
    EXPECT_THAT(Trace(), ElementsAre("Total number of files found:0", "Total number of bytes:0"));
}

TEST_F(DiagnosticLogTest, FailureOfTheListingNamesItsPlace) {
    MakeTraceDirectory();
    WriteFile(File("zynlog-1.txt"), std::string(100, 'x'));
    EXPECT_EQ(Export("1").error, kToolBanner + ToolFailure("Bad logic:File size too small"));
    EXPECT_THAT(Trace(), ElementsAre("Extended exception:src/MultiFileStream/MultiFileStream.h:"
                                     "<line>-Bad logic:File size too small"));
}

TEST_F(DiagnosticLogTest, EachCheckThatFailsAddsOneLineAlsoWhenItIsSwallowed) {
    MakeTraceDirectory();
    LogBlock quiet;
    quiet.Record(LogRecord(1)).Record(LogRecord(2).HeaderLength(9));
    LogBlock loud;
    loud.Record(LogRecord(3).Packet(LogPacket(LogPacketCode::kString).Length(99)));
    WriteFile(File("zynlog-1.txt"), LogWriter().Block(quiet).Block(loud).File());
    EXPECT_EQ(Export("1").error, kToolBanner + ToolFailure("Bad logic:Insufficent data to read"));
    const std::vector<std::string> trace = Trace();
    ASSERT_EQ(trace.size(), 5U);
    EXPECT_EQ(trace[3],
              "Extended exception:src/TraceData/TracePacket.h:<line>-Bad logic:Incorrect data "
              "length for specified data type.");
    EXPECT_EQ(trace[4],
              "Extended exception:src/MemoryStream/MemoryStream.h:<line>-Bad logic:Insufficent "
              "data to read");
}

TEST_F(DiagnosticLogTest, EndOfTheLogInABlockIsTheStreams) {
    MakeTraceDirectory();
    LogBlock block;
    block.Record(LogRecord(1)).DataSize(1000);
    WriteFile(File("zynlog-1.txt"), LogWriter().Block(block).File());
    Export("1");
    EXPECT_EQ(Trace().back(),
              "Extended exception:src/MultiFileStream/MultiFileStream.h:<line>-Bad logic:No more "
              "files available for read");
}

TEST_F(DiagnosticLogTest, DestinationThatCannotBeOpenedNamesItsPlace) {
    MakeTraceDirectory();
    static_cast<void>(directory_.MakeDirectory("out.txt"));
    Export("1");
    EXPECT_EQ(Trace().back(),
              "Extended exception:src/TraceData/text/TextFile.cpp:<line>-Can not open "
              "file [OS call failed:21(Is a directory)]");
}

TEST_F(DiagnosticLogTest, GrammarFaultIsNotLogged) {
    MakeTraceDirectory();
    ProgramRun run = Run({"bogus"});
    run.environment.emplace_back("DIAGNOSTIC_MODE=1");
    EXPECT_EQ(Finish(run).status, 255);
    EXPECT_THAT(ListDirectory(directory_ / "temp/ZYN"), IsEmpty());
}

TEST_F(DiagnosticLogTest, AnyOtherModeWritesNothing) {
    MakeTraceDirectory();
    WriteFile(File("zynlog-1.txt"), std::string(100, 'x'));
    for (const char* mode : {"0", "", "yes", "1 ", "11", "01"}) {
        EXPECT_EQ(Export(mode).status, 255);
        EXPECT_THAT(ListDirectory(directory_ / "temp/ZYN"), IsEmpty()) << mode;
    }
}

TEST_F(DiagnosticLogTest, LinesAreAppended) {
    MakeTraceDirectory();
    WriteFile(directory_ / "temp/ZYN/trace.txt", "00:00:00.000 ZYNCLIENT: from before\n");
    Export("1");
    EXPECT_THAT(Trace(), ElementsAre("from before", "Total number of files found:0",
                                     "Total number of bytes:0"));
}

TEST_F(DiagnosticLogTest, MissingDirectoryYieldsThreeSystemLogLinesPerTraceLine) {
    EXPECT_EQ(Export("1").error, kToolBanner);
    const std::string three =
        "|0|8|3|Error: trace.txt file open\n"
        "|0|8|3|Error: trace.txt file\n"
        "|0|8|3|Error: trace.txt file close\n";
    EXPECT_EQ(Content("syslog"), three + three);
}

}  // namespace
