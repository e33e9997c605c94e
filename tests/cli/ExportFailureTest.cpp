// What export does when its input or output is not as it should be.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/ExportFixture.h"
#include "testing/process/Files.h"

namespace {

using testing::ElementsAre;

const std::string kRefused = "Can not open file [OS call failed:22(Invalid argument)]";
const std::string kDiskFull = "Can not write file [OS call failed:28(No space left on device)]";

class ExportFailureTest : public ExportFixture {
  protected:
    // Exports the log directory into "out", which must fail.
    void ExpectExportFailure(const std::string& text) const {
        ExpectFailure({"-d", logs_, "-f", "out"}, text);
    }
};

TEST_F(ExportFailureTest, FileThatIsTooSmallFailsTheListingAndLeavesNoFile) {
    Write("zynlog-1.txt", Log("good"));
    Write("zynlog-2.txt", std::string(100, 'x'));
    ExpectExportFailure("Bad logic:File size too small");
    EXPECT_FALSE(Exists("out"));
    ExpectFailure({"-s", "logs/zynlog-2.txt"}, "Bad logic:File size too small");
    EXPECT_THAT(ListDirectory(directory_.Path()), ElementsAre("logs"));
}

TEST_F(ExportFailureTest, FailureOfTheListingLeavesAnExistingFileAlone) {
    Write("zynlog-1.txt", "");
    WriteFile(directory_ / "out", "kept");
    ExpectExportFailure("Bad logic:File size too small");
    EXPECT_EQ(Content("out"), "kept");
}

TEST_F(ExportFailureTest, FilesFinishedBeforeTheFailureStay) {
    Write("zynlog-1.txt", Log("good"));
    Write("zynlog-2.txt", "short");
    Write("zynlog-3.txt", Log("never"));
    ExpectFailure({"-d", logs_, "-m"}, "Bad logic:File size too small");
    EXPECT_THAT(ListDirectory(directory_.Path()), ElementsAre("EXPORT-zynlog-1.txt", "logs"));
    EXPECT_EQ(Content("EXPORT-zynlog-1.txt"), kColumns + Line("good"));
}

TEST_F(ExportFailureTest, FilesOf256And257And300Bytes) {
    Write("zynlog-1.txt", LogWriter::FileHeader());
    Write("zynlog-2.txt", Log("text"));
    ExportSilently({"-d", logs_, "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("text"));
    for (const std::size_t extra : {1U, 44U}) {
        Write("zynlog-3.txt", LogWriter::FileHeader() + Log("cut").substr(256, extra));
        ExpectExportFailure("Bad logic:No more files available for read");
        EXPECT_EQ(Content("out"), kColumns + Line("text"));
    }
}

TEST_F(ExportFailureTest, FailureMidwayFollowsTheProgressDirectly) {
    LogWriter log;
    log.Block(Block("one")).Block(LogBlock().HeaderLength(41)).Block(Block("never"));
    Write("zynlog-1.txt", log.File());
    const ProgramResult result = Tool({"export", "-d", logs_, "-f", "out"});
    const std::size_t total = log.Bytes().size();
    const std::size_t first = Block("one").Bytes().size();
    EXPECT_EQ(result.error,
              kToolBanner + Progress(0) + Progress(static_cast<unsigned>(first * 100 / total)) +
                  ToolFailure("Bad logic:Incorrect data length for specified data type."));
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(Content("out"), kColumns + Line("one"));
}

TEST_F(ExportFailureTest, PacketThatRunsPastItsRecordFailsAfterTheLinesBeforeIt) {
    LogBlock block;
    block.Record(LogRecord(1).Time(0, 0).Pid(7).Tid(1234).Message("one"));
    block.Record(LogRecord(2).Packet(LogPacket(LogPacketCode::kString).Length(9)));
    Write("zynlog-1.txt", LogWriter().Block(block).File());
    ExpectExportFailure("Bad logic:Insufficent data to read");
    EXPECT_EQ(Content("out"), kColumns + "01/01/1970 00:00:00.000    7      1234one\n");
}

TEST_F(ExportFailureTest, BlockOfFourGigabytesThatIsNotThereFailsAtOnce) {
    Write("zynlog-1.txt", LogWriter().Block(LogBlock().DataSize(0xFFFFFFFF)).File());
    ProgramRun run = Run({"export", "-d", logs_, "-f", "out", "-silent"});
    const ProgramResult result = Finish(run);
    EXPECT_EQ(result.error,
              kToolBanner + ToolFailure("Bad logic:No more files available for read"));
    EXPECT_EQ(result.status, 255);
}

TEST_F(ExportFailureTest, DirectoryThatIsMissingIsNotMade) {
    Write("zynlog-1.txt", Log("one"));
    const std::string text = "Can not open file [OS call failed:2(No such file or directory)]";
    ExpectFailure({"-d", logs_, "-m", "none"}, text);
    ExpectFailure({"-d", logs_, "-f", "none/out"}, text);
    EXPECT_THAT(ListDirectory(directory_.Path()), ElementsAre("logs"));
}

TEST_F(ExportFailureTest, DestinationThatIsADirectoryFails) {
    Write("zynlog-1.txt", Log("one"));
    ExpectFailure({"-d", logs_, "-f", "logs"},
                  "Can not open file [OS call failed:21(Is a directory)]");
}

TEST_F(ExportFailureTest, DestinationThatIsASourceIsRefusedUntouched) {
    Write("zynlog-1.txt", Log("one"));
    Write("zynlog-2.txt", Log("two"));
    ASSERT_EQ(link((logs_ + "/zynlog-2.txt").c_str(), (directory_ / "hard").c_str()), 0);
    ASSERT_EQ(symlink("logs/zynlog-1.txt", (directory_ / "soft").c_str()), 0);
    for (const char* name : {"logs/zynlog-1.txt", "logs/../logs/zynlog-2.txt", "hard", "soft"}) {
        ExpectFailure({"-d", logs_, "-f", name}, kRefused);
    }
    EXPECT_EQ(ReadFile(logs_ + "/zynlog-1.txt"), Log("one"));
    EXPECT_EQ(ReadFile(logs_ + "/zynlog-2.txt"), Log("two"));
}

TEST_F(ExportFailureTest, DestinationThatIsALogWithADamagedHeaderIsRefusedUntouched) {
    std::string damaged = Log("one");
    damaged[0] ^= 1;
    Write("zynlog-1.txt", damaged);
    Write("zynlog-2.txt", Log("two"));
    for (const std::vector<std::string>& source :
         {std::vector<std::string>{"-d", logs_},
          std::vector<std::string>{"-s", "logs/zynlog-1.txt"}}) {
        std::vector<std::string> arguments = source;
        arguments.insert(arguments.end(), {"-f", "logs/zynlog-1.txt"});
        ExpectFailure(arguments, kRefused);
        EXPECT_EQ(ReadFile(logs_ + "/zynlog-1.txt"), damaged);
    }
    Write("EXPORT-zynlog-1.txt", "an older text");
    ExpectFailure({"-s", "logs/zynlog-2.txt", "-f", "logs/zynlog-2.txt"}, kRefused);
    ExportSilently({"-d", logs_, "-f", "logs/EXPORT-zynlog-1.txt"});
    EXPECT_EQ(ReadFile(logs_ + "/EXPORT-zynlog-1.txt"), kColumns + Line("two"));
}

TEST_F(ExportFailureTest, DestinationThatIsAnotherLogOfTheRunIsRefusedUntouched) {
    const std::string out = directory_.MakeDirectory("out");
    Write("zynlog-1.txt", Log("one"));
    Write("zynlog-2.txt", Log("two"));
    // Left out, but listed.
    Write("zynlog-3.txt", "x" + Log("three"));
    Write("zynlog-4.txt", Log("four"));
    const auto unchanged = ReadDirectory(logs_);
    for (const char* target : {"zynlog-2.txt", "zynlog-3.txt", "zynlog-4.txt"}) {
        for (const bool hard : {true, false}) {
            const std::string name = out + "/EXPORT-zynlog-1.txt";
            unlink(name.c_str());
            const std::string log = logs_ + "/" + target;
            ASSERT_EQ(hard ? link(log.c_str(), name.c_str()) : symlink(log.c_str(), name.c_str()),
                      0);
            ExpectFailure({"-d", logs_, "-m", out}, kRefused);
            EXPECT_EQ(ReadDirectory(logs_), unchanged) << target;
        }
    }
    // One that has been exported already.
    unlink((out + "/EXPORT-zynlog-1.txt").c_str());
    ASSERT_EQ(symlink("../logs/zynlog-1.txt", (out + "/EXPORT-zynlog-4.txt").c_str()), 0);
    ExpectFailure({"-d", logs_, "-m", out}, kRefused);
    EXPECT_EQ(ReadDirectory(logs_), unchanged);
    EXPECT_EQ(ReadFile(out + "/EXPORT-zynlog-1.txt"), kColumns + Line("one"));
}

TEST_F(ExportFailureTest, LinkFromATextToAFileThatIsNoLogIsFollowed) {
    Write("zynlog-1.txt", Log("one"));
    WriteFile(directory_ / "old", std::string(5000, 'o'));
    ASSERT_EQ(symlink("old", (directory_ / "EXPORT-zynlog-1.txt").c_str()), 0);
    ExportSilently({"-d", logs_, "-m"});
    EXPECT_EQ(Content("old"), kColumns + Line("one"));
    ASSERT_EQ(symlink("made", (directory_ / "dangling").c_str()), 0);
    ExportSilently({"-d", logs_, "-f", "dangling"});
    EXPECT_EQ(Content("made"), kColumns + Line("one"));
}

// Into the log directory itself, too: what is made there is no log.
TEST_F(ExportFailureTest, DirectoryIsListedOnceHoweverManyTextsAreMade) {
    for (int i = 100; i < 160; ++i) {
        Write("zynlog-" + std::to_string(i) + ".txt", Log(std::to_string(i)));
    }
    for (const std::string& target : {directory_.MakeDirectory("out"), logs_}) {
        ProgramRun run = Run({"export", "-d", logs_, "-m", target, "-silent"});
        EXPECT_EQ(CallsOf("opendir", run, directory_.Path()), 1U) << target;
        // The texts are there now, and are looked up among the logs, which are looked at once.
        EXPECT_LT(CallsOf("stat", run, directory_.Path()), 6U * 60) << target;
        EXPECT_EQ(ReadFile(target + "/EXPORT-zynlog-159.txt"), kColumns + Line("159"));
    }
}

TEST_F(ExportFailureTest, FullDiskIsAnError) {
    Write("zynlog-1.txt", Log("one"));
    ExpectFailure({"-d", logs_, "-f", "/dev/full"}, kDiskFull);
    ASSERT_EQ(symlink("/dev/full", (directory_ / "EXPORT-zynlog-1.txt").c_str()), 0);
    ExpectFailure({"-d", logs_, "-m"}, kDiskFull);
}

// With nothing held back, the text before the damage would have met the full disk first.
TEST_F(ExportFailureTest, FullDiskBeforeTheDamageIsTheError) {
    LogWriter log;
    log.Block(Block("one")).Block(LogBlock().HeaderLength(41));
    Write("zynlog-1.txt", log.File());
    ExpectFailure({"-d", logs_, "-f", "/dev/full"}, kDiskFull);
    ExpectFailure({"-s", "logs/zynlog-1.txt", "-f", "/dev/full"}, kDiskFull);
    ASSERT_EQ(symlink("/dev/full", (directory_ / "EXPORT-zynlog-1.txt").c_str()), 0);
    ExpectFailure({"-d", logs_, "-m"}, kDiskFull);
    // A packet in the middle of a block.
    LogBlock block;
    block.Record(LogRecord(1).Time(0, 0).Message("one"));
    block.Record(LogRecord(2).Packet(LogPacket(LogPacketCode::kString).Length(9)));
    Write("zynlog-1.txt", LogWriter().Block(block).File());
    ExpectFailure({"-d", logs_, "-f", "/dev/full"}, kDiskFull);
    ExpectFailure({"-d", logs_, "-f", "out"}, "Bad logic:Insufficent data to read");
}

TEST_F(ExportFailureTest, FileSizeLimitIsAnErrorAndLeavesAPrefix) {
    LogBlock block;
    for (std::uint32_t number = 0; number < 3000; ++number) {
        block.Record(LogRecord(number).Time(number, 0).Message(std::string(100, 'm')));
    }
    Write("zynlog-1.txt", LogWriter().Block(block).File());
    ExportSilently({"-d", logs_, "-f", "whole"});
    const std::string whole = Content("whole");
    ProgramRun run = Run({"export", "-d", logs_, "-f", "out", "-silent"});
    run.limits = {{RLIMIT_FSIZE, 200000}};
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.error, kToolBanner + ToolFailure("Can not write file [OS call failed:27(File "
                                                      "too large)]"));
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(Content("out"), whole.substr(0, 200000));
}

TEST_F(ExportFailureTest, StandardOutputAsDestinationHasTheText) {
    Write("zynlog-1.txt", Log("one"));
    const ProgramResult result =
        RunProgram(Run({"export", "-d", logs_, "-f", "/dev/stdout", "-silent"}));
    EXPECT_EQ(result.output, kColumns + Line("one"));
    EXPECT_EQ(result.error, kToolBanner);
    EXPECT_EQ(result.status, 0);
}

TEST_F(ExportFailureTest, StandardOutputThatIsAFileIsStartedAnew) {
    Write("zynlog-1.txt", Log("one"));
    WriteFile(directory_ / "out", std::string(5000, 'o'));
    ProgramRun run =
        Run({"-c", "exec \"$0\" export -d logs -f /dev/stdout -silent >>out", ZYN_TOOL});
    run.program = "/bin/sh";
    EXPECT_EQ(Finish(run).status, 0);
    EXPECT_EQ(Content("out"), kColumns + Line("one"));
    run.arguments[1] = "\"$0\" export -d logs -f /dev/stdout -silent | /bin/cat >>out";
    EXPECT_EQ(Finish(run).status, 0);
    EXPECT_EQ(Content("out"), kColumns + Line("one") + kColumns + Line("one"));
}

TEST_F(ExportFailureTest, PipeThatNobodyReadsIsAnErrorAndNoSignal) {
    Write("zynlog-1.txt", Log("one"));
    ProgramRun run = Run({"export", "-d", logs_, "-f", "/dev/fd/1", "-silent"});
    run.brokenOutput = true;
    const ProgramResult result = RunProgram(run);
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.error,
              kToolBanner + ToolFailure("Can not write file [OS call failed:32(Broken pipe)]"));
}

TEST_F(ExportFailureTest, ClosedStandardOutputAsDestinationIsAnError) {
    Write("zynlog-1.txt", Log("one"));
    ProgramRun run = Run({"export", "-d", logs_, "-f", "/proc/self/fd/1", "-silent"});
    run.closedOutput = true;
    EXPECT_EQ(Finish(run).status, 255);
}

TEST_F(ExportFailureTest, PipeNamedLikeALogDoesNotHang) {
    ASSERT_EQ(mkfifo((logs_ + "/zynlog-1.txt").c_str(), 0600), 0);
    ExpectExportFailure("Failed to seek to the end of the file [OS call failed:29(Illegal seek)]");
}

TEST_F(ExportFailureTest, DeviceNamedLikeALogDoesNotHang) {
    ASSERT_EQ(symlink("/dev/zero", (logs_ + "/zynlog-1.txt").c_str()), 0);
    ExpectExportFailure("Bad logic:File size too small");
}

TEST_F(ExportFailureTest, DanglingLinkNamedLikeALogFails) {
    ASSERT_EQ(symlink("nowhere", (logs_ + "/zynlog-1.txt").c_str()), 0);
    ExpectExportFailure(
        "Failed to open file for read [OS call failed:2(No such file or directory)]");
}

TEST_F(ExportFailureTest, UnreadableFileNamedLikeALogFails) {
    if (geteuid() == 0) {
        // Nothing is unreadable to the superuser but a file whose link leads in a circle.
        ASSERT_EQ(symlink("zynlog-1.txt", (logs_ + "/zynlog-1.txt").c_str()), 0);
        ExpectExportFailure(
            "Failed to open file for read [OS call failed:40(Too many levels of "
            "symbolic links)]");
        return;
    }
    Write("zynlog-1.txt", Log("one"));
    ASSERT_EQ(chmod((logs_ + "/zynlog-1.txt").c_str(), 0), 0);
    ExpectExportFailure("Failed to open file for read [OS call failed:13(Permission denied)]");
}

TEST_F(ExportFailureTest, SourceDirectoryThatIsNoneHasNoLogs) {
    WriteFile(directory_ / "file", "not a directory");
    for (const char* name : {"none", "file", ""}) {
        ExportSilently({"-d", name, "-f", "out"});
        EXPECT_EQ(Content("out"), kColumns);
    }
}

TEST_F(ExportFailureTest, ThreeThousandFilesAreExportedWithFewDescriptors) {
    std::string expected = kColumns;
    for (int i = 1000; i < 4000; ++i) {
        const std::string number = std::to_string(i);
        Write("zynlog-" + number + ".txt", Log(number));
        expected += Line(number);
    }
    ProgramRun run = Run({"export", "-d", logs_, "-f", "out", "-silent"});
    run.limits = {{RLIMIT_NOFILE, 256}};
    const ProgramResult result = Finish(run);
    EXPECT_EQ(result.error, kToolBanner);
    EXPECT_TRUE(Content("out") == expected);
}

// Sparse: zeros are empty blocks' type with a wrong length, so the export ends after the first
// lines, but the sizes before it are real.
TEST_F(ExportFailureTest, LogOfMoreThanFourGibibytesIsReadUpToItsDamage) {
    Write("zynlog-1.txt", Log("begin"));
    std::filesystem::resize_file(logs_ + "/zynlog-1.txt", std::uint64_t{5} << 30);
    const ProgramResult result = Tool({"export", "-d", logs_, "-f", "out"});
    EXPECT_EQ(result.error,
              kToolBanner + Progress(0) +
                  ToolFailure("Bad logic:Incorrect data length for specified data type."));
    EXPECT_EQ(Content("out"), kColumns + Line("begin"));
}

}  // namespace
