// What zynlog-cat reads: compressed files, pipes and directories with more than it should show.
#include <gtest/gtest.h>
#include <utime.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "cli/CatFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

struct Compressor {
    const char* command;
    const char* ending;
};
constexpr std::array<Compressor, 2> kCompressors{{{"gzip -n", ".gz"}, {"zstd -q --rm", ".zst"}}};

class CatInputTest : public CatFixture {
  protected:
    void SetAge(const std::string& name, std::time_t changed) const {
        const utimbuf times{changed, changed};
        ASSERT_EQ(utime((directory_ / name).c_str(), &times), 0);
    }
    ProgramResult CatOf(const std::string& input, std::vector<std::string> arguments) const {
        ProgramRun run;
        run.input = input;
        return Cat(std::move(arguments), run);
    }
};

TEST_F(CatInputTest, CompressedFilesAreShownAsThePlainOnesAre) {
    for (const Compressor& compressor : kCompressors) {
        const std::string log = std::string("log") + compressor.ending;
        WriteLog(log, SmallLog(), {100, 250});
        const std::string plain = Cat({log}).output;
        for (const char* name : {"/zynlog-0002.txt", "/zynlog-0001.txt"}) {
            Shell(std::string(compressor.command) + " " + log + name);
            const ProgramResult result = Cat({log});
            EXPECT_EQ(result.output, plain) << name << compressor.ending;
            EXPECT_EQ(result.error, "");
            EXPECT_EQ(result.status, 0);
        }
        const std::string first = log + "/zynlog-0001.txt" + compressor.ending;
        EXPECT_NE(Cat({log, "-o", "json", "-n", "5"})
                      .output.find("\"file\":\"" + first + "\",\"offset\":"),
                  std::string::npos);
        EXPECT_EQ(Messages({log, "--merge", "-n", "3"}), "m3 m4 m5 ");
        EXPECT_EQ(Messages({log, "-l", "Even"}), "m2 m4 ");
    }
}

TEST_F(CatInputTest, CompressedInputIsShownAndMerged) {
    WriteFile(directory_ / "whole", SmallLog().File());
    const std::string plain = CatOf(SmallLog().File(), {"-"}).output;
    EXPECT_EQ(plain.substr(0, kColumnsHeader.size()), kColumnsHeader);
    for (const Compressor& compressor : kCompressors) {
        Shell(std::string("cp whole copy && ") + compressor.command + " copy");
        const std::string bytes = ReadFile(directory_ / ("copy" + std::string(compressor.ending)));
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"-"}, {"--merge", "-"}}) {
            const ProgramResult result = CatOf(bytes, arguments);
            EXPECT_EQ(result.output, plain) << compressor.ending;
            EXPECT_EQ(result.error, "");
            EXPECT_EQ(result.status, 0);
        }
    }
}

TEST_F(CatInputTest, InputThatCannotBeSpooledIsReported) {
    ProgramRun run;
    run.input = SmallLog().File();
    run.environment = {"TMPDIR=" + (directory_ / "none")};
    const ProgramResult result = Cat({"-", "--merge"}, run);
    EXPECT_EQ(
        result.error,
        "zynlog-cat: --merge: Failed to create temporary file [OS call failed:2(No such file or "
        "directory)]\n");
    EXPECT_EQ(result.status, 2);
}

TEST_F(CatInputTest, PlainTwinIsReadAndTheOthersAreReported) {
    WriteLog("log", SmallLog());
    Shell("cd log && gzip -k zynlog-0001.txt && zstd -q zynlog-0001.txt");
    const ProgramResult result = Cat({"log"});
    EXPECT_EQ(result.error,
              "zynlog-cat: log/zynlog-0001.txt.gz: is left out: zynlog-0001.txt is read\n"
              "zynlog-cat: log/zynlog-0001.txt.zst: is left out: zynlog-0001.txt is read\n");
    Shell("cd log && rm zynlog-0001.txt.*");
    EXPECT_EQ(result.output, Cat({"log"}).output);
}

TEST_F(CatInputTest, CompressedDataThatIsCutOrDamagedIsShownAsFarAsItComesOut) {
    LogWriter log;
    for (std::uint32_t block = 0; block < 400; ++block) {
        log.Block(Block(1 + 3 * block, 3));
    }
    for (const Compressor& compressor : kCompressors) {
        const std::string file = "zynlog-0001.txt" + std::string(compressor.ending);
        WriteLog("log", log);
        Shell(std::string("cd log && ") + compressor.command + " zynlog-0001.txt");
        const std::string whole = ReadFile(directory_ / ("log/" + file));
        WriteFile(directory_ / ("log/" + file), Truncated(whole, whole.size() - 5));
        const ProgramResult cut = Cat({"log"});
        EXPECT_EQ(cut.status, 1) << compressor.ending;
        EXPECT_NE(cut.error.find("zynlog-cat: log/" + file + ": the compressed data ends early\n"),
                  std::string::npos)
            << cut.error;
        WriteFile(directory_ / ("log/" + file), WithBitFlipped(whole, whole.size() - 3, 1));
        const ProgramResult damaged = Cat({"log"});
        EXPECT_EQ(damaged.status, 1) << compressor.ending;
        EXPECT_NE(
            damaged.error.find("zynlog-cat: log/" + file + ": the compressed data is damaged\n"),
            std::string::npos)
            << damaged.error;
        Shell("rm -r log");
    }
}

TEST_F(CatInputTest, FilesThatNobodyWroteToSinceAreNotRead) {
    WriteLog("log", LogWriter().Block(Block(1, 1)));
    WriteFile(directory_ / "log/zynlog-0002.txt", LogWriter().Block(Block(2, 1)).File());
    WriteFile(directory_ / "log/zynlog-0003.txt", LogWriter().Block(Block(3, 1)).File());
    WriteFile(directory_ / "log/zynlog-0001.txt",
              LogWriter().Block(Block(1, 1)).Raw("damage").File());
    const std::vector<std::string> since{"log", "-S", "@1700000000"};
    SetAge("log/zynlog-0001.txt", 1700000000 - 60);
    SetAge("log/zynlog-0002.txt", 1700000000 - 61);
    EXPECT_NE(Cat(since).error, "") << "its damage is seen where it is read";
    SetAge("log/zynlog-0001.txt", 1700000000 - 61);
    EXPECT_EQ(Messages(since), "m3 ") << "neither shown nor is its damage said";
    EXPECT_NE(Cat({"log"}).error, "");
    // A file by itself has no list that it could stand at the head of.
    EXPECT_EQ(Messages({"log/zynlog-0002.txt", "-S", "@1700000000"}), "m2 ");
}

TEST_F(CatInputTest, BlockThatRunsOnKeepsTheFileInWhichItBegins) {
    const std::string bytes = LogWriter().Block(Block(1, 2)).File();
    WriteFile(directory_.MakeDirectory("log") + "/zynlog-0001.txt",
              Truncated(bytes, bytes.size() - 20));
    WriteFile(directory_ / "log/zynlog-0002.txt",
              LogWriter().Raw(bytes.substr(bytes.size() - 20)).Block(Block(3, 1)).File());
    SetAge("log/zynlog-0001.txt", 1700000000 - 3600);
    EXPECT_EQ(Messages({"log", "-S", "@1700000000"}), "m1 m2 m3 ");
}

// A sanitizer has its own allocator, whose functions the kit does not stand in front of.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kAllocationsFail = false;
#else
constexpr bool kAllocationsFail = true;
#endif

// Whichever allocation fails: a message and the status, and once it is the decoder's, its text.
TEST_F(CatInputTest, DecoderWithoutMemoryIsReported) {
    WriteFile(directory_ / "whole", SmallLog().File());
    for (const Compressor& compressor : kCompressors) {
        const std::string name = std::string("copy") + compressor.ending;
        Shell(std::string("cp whole copy && ") + compressor.command + " copy");
        const std::string plain = Cat({name}).output;
        unsigned decoders = 0;
        bool whole = !kAllocationsFail;
        for (unsigned nth = 1; !whole && nth < 2000; ++nth) {
            ProgramRun run;
            run.preloadLibrary = ZYN_FAULT_PRELOAD;
            run.environment = {"ZYN_FAULT_CALL=malloc", "ZYN_FAULT_FIRST=" + std::to_string(nth),
                               "ZYN_FAULT_COUNT=1", "ZYN_FAULT_ACTION=" + std::to_string(ENOMEM),
                               "ZYN_FAULT_LOG=" + (directory_ / "hits")};
            WriteFile(directory_ / "hits", "");
            const ProgramResult result = Cat({name}, run);
            whole = ReadFile(directory_ / "hits").empty();
            ASSERT_EQ(result.signal, 0) << nth << ": " << result.error;
            if (result.status == 0) {
                EXPECT_EQ(result.output, plain) << nth;
                continue;
            }
            EXPECT_EQ(result.status, 2) << nth;
            EXPECT_FALSE(result.error.empty()) << nth;
            decoders += result.error == "zynlog-cat: " + name +
                                            ": Memory allocation failed:Can not create decoder\n"
                            ? 1U
                            : 0U;
        }
        EXPECT_TRUE(whole) << "each allocation has failed once";
        EXPECT_EQ(decoders != 0, kAllocationsFail) << compressor.ending;
    }
}

}  // namespace
