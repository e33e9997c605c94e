// zynlog-verify on compressed logs, compressed by the programs that operators use: the report is
// that of the plain files, by the names of the compressed ones.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "cli/VerifyFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

using Json = nlohmann::json;

struct Compressor {
    const char* command;
    const char* ending;
};
constexpr std::array<Compressor, 2> kCompressors{{{"gzip -n", ".gz"}, {"zstd -q --rm", ".zst"}}};

std::string Without(std::string text, const std::string& part) {
    for (std::size_t at = 0; (at = text.find(part)) != std::string::npos;) {
        text.erase(at, part.size());
    }
    return text;
}

class VerifyCompressedTest : public VerifyFixture {
  protected:
    static LogWriter Log(std::uint32_t blocks) {
        LogWriter log;
        for (std::uint32_t block = 0; block < blocks; ++block) {
            log.Block(LogBlock().Record(Record(2 * block + 1)).Record(Record(2 * block + 2)));
        }
        return log;
    }

    void Shell(const std::string& command) const {
        const ProgramResult result = Run("/bin/sh", {"-c", "PATH=/usr/bin:/bin; " + command});
        ASSERT_EQ(result.status, 0) << command << ": " << result.error;
    }
    void Compress(const Compressor& compressor, const std::string& name) const {
        Shell(std::string(compressor.command) + " " + name);
    }
    void Write(const std::string& name, const std::string& bytes) const {
        WriteFile(directory_ / name, bytes);
    }
    Json Report(const std::vector<std::string>& operands, int status) const {
        std::vector<std::string> arguments{"--json", "--blocks"};
        arguments.insert(arguments.end(), operands.begin(), operands.end());
        const ProgramResult result = Verify(arguments);
        EXPECT_EQ(result.status, status) << result.output << result.error;
        return Json::parse(result.output);
    }
    // The only log's only finding.
    static Json Only(const Json& report) {
        std::vector<Json> findings;
        for (const Json& item : report["logs"][0]["items"]) {
            if (item["type"] == "finding") {
                findings.push_back(item);
            }
        }
        EXPECT_EQ(findings.size(), 1U) << report;
        return findings.empty() ? Json() : findings[0];
    }
};

TEST_F(VerifyCompressedTest, EveryMixtureOfFilesIsReadAsThePlainOnesAre) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const LogWriter log = Log(30);
    // Anywhere in a block, and twice at the same place: a file without data.
    std::vector<std::size_t> cuts;
    for (int i = 0; i < 8; ++i) {
        cuts.push_back(random() % log.Bytes().size());
    }
    cuts.push_back(cuts.front());
    std::sort(cuts.begin(), cuts.end());
    const std::string logs = directory_.MakeDirectory("logs");
    log.WriteFiles(logs, cuts);
    for (const std::string& operand : {std::string("logs"), logs}) {
        // Between two that may be compressed.
        Write("logs/zynlog-0003x.txt", "no log file");
        const std::string plain = Verify({"--json", "--blocks", operand}).output;
        ASSERT_EQ(Json::parse(plain)["logs"][0]["records"], 60);
        for (const std::string& name : ListDirectory(logs)) {
            if (const std::size_t choice = random() % 3; choice < kCompressors.size()) {
                Compress(kCompressors[choice], "logs/" + name);
            }
        }
        const std::string mixed = Verify({"--json", "--blocks", operand}).output;
        EXPECT_EQ(Without(Without(mixed, ".gz"), ".zst"), plain);
        Shell(
            "cd logs; for f in *.gz; do gzip -d $f || :; done; "
            "for f in *.zst; do zstd -q -d --rm $f || :; done");
    }
}

TEST_F(VerifyCompressedTest, ReportsShowTheNamesOfTheCompressedFiles) {
    Log(2).WriteFiles(directory_.Path(), {60});
    Compress(kCompressors[0], "zynlog-0001.txt");
    Compress(kCompressors[1], "zynlog-0002.txt");
    const ProgramResult result = Verify({"."});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.output.find("\nzynlog-0001.txt.gz      60       1        2"),
              std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("\nzynlog-0002.txt.zst"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("/proc/"), std::string::npos) << result.output;
    EXPECT_EQ(Verify({"zynlog-0001.txt.gz"}).status, 1) << "its block ends in the next file";
    EXPECT_EQ(Verify({"zynlog-0002.txt.zst", "zynlog-0001.txt.gz"}).status, 0);
}

TEST_F(VerifyCompressedTest, AFileByItselfAndTheStandardInputMayBeCompressed) {
    for (const Compressor& compressor : kCompressors) {
        SCOPED_TRACE(compressor.command);
        Write("log", Log(3).File());
        Shell(std::string(compressor.command) + " <log >packed");
        EXPECT_EQ(Report({"packed"}, 0)["logs"][0]["files"][0]["file"], "./packed");
        ProgramRun piped;
        piped.input = ReadFile(directory_ / "packed");
        const ProgramResult pipe = Verify({"--json", "-"}, piped);
        const Json report = Json::parse(pipe.output);
        EXPECT_EQ(report["logs"][0]["records"], 6);
        EXPECT_EQ(report["logs"][0]["files"][0]["file"], "-");
        const ProgramResult file = Run("/bin/sh", {"-c", "exec \"$0\" -q - <packed", ZYN_VERIFY});
        EXPECT_EQ(file.status, 0) << file.error;
    }
}

TEST_F(VerifyCompressedTest, SeveralMembersAreOneFile) {
    const std::string bytes = Log(4).File();
    for (const Compressor& compressor : kCompressors) {
        SCOPED_TRACE(compressor.command);
        const std::string command = compressor.command;
        Write("log", bytes);
        Shell("{ head -c 100 log | " + command + " -c; tail -c +101 log | " + command +
              " -c; } >packed");
        EXPECT_EQ(Report({"packed"}, 0)["logs"][0]["records"], 8);
    }
}

TEST_F(VerifyCompressedTest, CompressedDataThatIsNotWholeIsDamage) {
    for (const Compressor& compressor : kCompressors) {
        SCOPED_TRACE(compressor.command);
        Write("zynlog-1.txt", Log(3).File());
        Compress(compressor, "zynlog-1.txt");
        const std::string name = std::string("zynlog-1.txt") + compressor.ending;
        const std::string packed = ReadFile(directory_ / name);
        // Nothing is lost but the check sum.
        Write(name, packed.substr(0, packed.size() - 1));
        const Json cut = Report({"."}, 1);
        EXPECT_EQ(Only(cut)["kind"], "compressed");
        EXPECT_EQ(Only(cut)["file"], "./" + name);
        EXPECT_EQ(Only(cut)["export"], "omits");
        EXPECT_EQ(Only(cut)["text"], "the compressed data ends early");
        EXPECT_EQ(cut["logs"][0]["records"], 6);
        EXPECT_EQ(cut["logs"][0]["damaged"], true);
        // The check sum is another one.
        Write(name,
              WithBitFlipped(packed, packed.size() - (compressor.ending[1] == 'g' ? 5 : 1), 3));
        const ProgramResult damaged = Verify({"."});
        EXPECT_EQ(damaged.status, 1);
        EXPECT_NE(
            damaged.output.find("  compressed      0        -  the compressed data is damaged"),
            std::string::npos)
            << damaged.output;
        // Not even a header comes out.
        Write(name, packed.substr(0, 12));
        EXPECT_EQ(Only(Report({"."}, 1))["kind"], "compressed");
        std::filesystem::remove(directory_ / name);
    }
}

TEST_F(VerifyCompressedTest, OfTwinsThePlainOneIsReadAndTheOtherReported) {
    Log(3).WriteFiles(directory_.Path(), {60});
    Shell("gzip -k zynlog-0001.txt zynlog-0002.txt; zstd -q zynlog-0002.txt; rm zynlog-0002.txt");
    for (const std::vector<std::string>& operands :
         {std::vector<std::string>{"."},
          {"zynlog-0002.txt.zst", "zynlog-0001.txt.gz", "zynlog-0002.txt.gz", "zynlog-0001.txt"}}) {
        const Json log = Report(operands, 0)["logs"][0];
        EXPECT_EQ(log["records"], 6);
        EXPECT_EQ(log["damaged"], false);
        EXPECT_EQ(log["findings"], 2);
        EXPECT_EQ(log["items"][0]["kind"], "twin");
        EXPECT_EQ(log["items"][0]["file"], "./zynlog-0001.txt.gz");
        EXPECT_EQ(log["items"][0]["text"], "is left out: zynlog-0001.txt is read");
        EXPECT_EQ(log["items"][1]["text"], "is left out: zynlog-0002.txt.gz is read");
    }
    EXPECT_EQ(Json::parse(Verify({"-js", "."}).output)["logs"].size(), 4U)
        << "each by itself is verified, whatever lies beside it";
}

TEST_F(VerifyCompressedTest, NamesAreSortedAsTheyWereBeforeTheyWereCompressed) {
    // Bytewise, "zynlog-1.txt.gz" stands behind "zynlog-1.txt-b".
    const std::vector<std::string> files = Log(2).Files({60});
    Write("zynlog-1.txt", files[0]);
    Write("zynlog-1.txt-b", files[1]);
    Compress(kCompressors[0], "zynlog-1.txt");
    EXPECT_EQ(Report({"."}, 0)["logs"][0]["records"], 4);
    EXPECT_EQ(Verify({"zynlog-1.txt-b", "zynlog-1.txt.gz"}).status, 0);
    // The newest is the plain one.
    Write("zynlog-1.txt-b", files[1].substr(0, files[1].size() - 1));
    EXPECT_EQ(Verify({"--live", "."}).status, 0);
}

TEST_F(VerifyCompressedTest, ManyCopiesBetweenPlainFilesAreOpenAtOnce) {
    const LogWriter log = Log(200);
    const std::size_t block = log.Bytes().size() / 200;
    std::vector<std::size_t> cuts;
    for (std::size_t i = 1; i < 200; ++i) {
        cuts.push_back(i * block);
    }
    log.WriteFiles(directory_.Path(), cuts);
    Shell("gzip zynlog-*[02468].txt");
    ProgramRun run;
    run.limits = {{RLIMIT_NOFILE, 64}};
    const ProgramResult result = Verify({"."}, run);
    EXPECT_EQ(result.status, 0) << result.output << result.error;
    EXPECT_NE(result.output.find("\n200 files, 200 blocks, 400 records;"), std::string::npos);
}

TEST_F(VerifyCompressedTest, NoRoomForTheCopyIsStatus2AndTheRestIsVerified) {
    Write("zynlog-1.txt", LogWriter().Block(LogBlock().Record(Record(8))).File());
    Write("zynlog-2.txt", Log(2000).File());
    Write("zynlog-3.txt", LogWriter().Block(LogBlock().Record(Record(9))).File());
    Shell("gzip zynlog-*.txt");
    const std::string room = directory_.MakeDirectory("room");
    ProgramRun run;
    run.program = ZYN_VERIFY;
    run.arguments = {"--json", "."};
    run.environment = {"TZ=UTC", "TMPDIR=" + room};
    run.directory = directory_.Path();
    run.limits = {{RLIMIT_FSIZE, 20000}};
    const ProgramResult full = RunProgram(run);
    EXPECT_EQ(full.status, 2);
    const Json report = Json::parse(full.output);
    EXPECT_EQ(Only(report)["kind"], "unreadable");
    EXPECT_EQ(Only(report)["file"], "./zynlog-2.txt.gz");
    EXPECT_NE(Only(report)["text"].get<std::string>().find("Failed to write temporary file"),
              std::string::npos)
        << report;
    EXPECT_EQ(report["logs"][0]["records"], 2) << "nothing of the one in the middle";
    EXPECT_EQ(report["logs"][0]["damaged"], false);
    run.limits.clear();
    EXPECT_EQ(RunProgram(run).status, 1) << "all of them, and some numbers twice";
    EXPECT_TRUE(ListDirectory(room).empty());
    run.environment.back() += "/gone";
    EXPECT_EQ(RunProgram(run).status, 2) << "no place for the copy";
}

}  // namespace
