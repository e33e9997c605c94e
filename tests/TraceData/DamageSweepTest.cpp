// Every small damage to a small log with every kind of packet: the export agrees with that of the
// independent decoder in every byte and in its failure, and never touches the lines before the
// damage. The damages are exported in this process, one after the other, through real files.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LogReading/LogFiles.h"
#include "TraceData/text/ZynDataTextExporter.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

constexpr std::size_t kHeaderBytes = 256;

std::uint64_t FixedClock() { return 1700000000123; }

std::vector<LogBlock> SampleBlocks() {
    std::vector<LogBlock> blocks(5);
    blocks[0].Host("host.one").Pid(4711);
    blocks[0].Record(LogRecord(12)
                         .Time(1700000000, 250, 60)
                         .Tid(1234)
                         .Pid(77)
                         .Module("Scheduler")
                         .Client("worker")
                         .Label("INFO")
                         .Message("queue drained"));
    blocks[0].Record(LogRecord(11)
                         .Time(1700000000, 249)
                         .Tid(1234)
                         .Pid(77)
                         .Module("Scheduler")
                         .Client("worker")
                         .Label("DEBUG")
                         .Message("3 left\nof 4\nlost"));
    blocks[0].Record(LogRecord(13)
                         .Time(1700000001, 1)
                         .Tid(9)
                         .Pid(77)
                         .Module("A module name that is longer than fifty characters are")
                         .Client("client name")
                         .Label("ERROR")
                         .Message("part one, ")
                         .Message("part two\n"));
    blocks[1].Host("a host name of more than thirty-one characters").Pid(4712);
    blocks[2].Host("h").Pid(1);
    blocks[2].Record(LogRecord(0xFFFFFFFF).Control(3, 99).Time(0xFFFFFFFF, 65535));
    blocks[2].Record(LogRecord(0).Control(7, 100).Control(8, 101).Message("after"));
    blocks[2].Record(LogRecord(14));
    blocks[3].Host("h").Pid(2);
    LogRecord kinds(15);
    for (unsigned code = 0; code < 16; ++code) {
        constexpr std::array<std::size_t, 8> kSizes{0, 1, 1, 2, 4, 8, 0, 0};
        LogPacket packet(code);
        packet.Raw(std::string(code < 8 ? kSizes[code] : code - 6, static_cast<char>(code)));
        if (code % 2 == 0) {
            packet.Id(static_cast<std::uint16_t>(code));
        }
        kinds.Packet(packet);
    }
    kinds.Packet(LogPacket(LogPacketCode::kU32).Id(kLogIdPid).ValueFlag().U32(5));
    kinds.Packet(LogPacket::Binary(kLogIdTime, std::string("\x05\x00\x00\x01\x07", 5)));
    blocks[3].Record(LogRecord(16).Time(86399, 999).Label("L").String(99, "ignored").Message("m"));
    blocks[3].Record(kinds);
    blocks[3].HeaderId(3);
    for (const std::uint32_t number : {24U, 20U, 22U, 21U, 23U}) {
        blocks[4].Record(LogRecord(number)
                             .Module("Store")
                             .Client("compactor-" + std::to_string(number))
                             .Label("WARNING")
                             .Pid(number * 1000)
                             .Tid(number)
                             .Time(1600000000 + number * 100, 7)
                             .Message(std::string(number * 3, 'm') + " table:\nrow\nrow\n")
                             .Control(number % 8, number));
    }
    return blocks;
}

std::string FileOf(const std::vector<LogBlock>& blocks) {
    LogWriter log;
    for (const LogBlock& block : blocks) {
        log.Block(block);
    }
    return log.File();
}

// Where the u32 fields of a valid log lie: lengths, and the words of the payloads that have some.
class FieldFinder {
  public:
    explicit FieldFinder(std::string_view file) : bytes_(file), at_(kHeaderBytes) {
        while (at_ < bytes_.size()) {
            Packet();
            const std::size_t blockEnd = at_ + Word(at_ - 4);
            while (at_ < blockEnd) {
                Packet();
                const std::size_t recordEnd = at_ + Word(at_ - 4);
                while (at_ < recordEnd) {
                    Packet();
                }
            }
        }
    }

    [[nodiscard]] const std::vector<std::size_t>& Found() const { return found_; }

  private:
    [[nodiscard]] std::uint32_t Word(std::size_t at) const {
        std::uint32_t word = 0;
        for (std::size_t i = 4; i-- > 0;) {
            word = word << 8 | static_cast<unsigned char>(bytes_[at + i]);
        }
        return word;
    }

    void Packet() {
        constexpr std::array<std::size_t, 8> kSizes{0, 1, 1, 2, 4, 8, 0, 0};
        const unsigned flags = static_cast<unsigned char>(bytes_[at_]);
        at_ += (flags & 0x20U) != 0 ? 3 : 1;
        std::size_t length = kSizes[flags & 7U];
        if ((flags & 8U) != 0) {
            length = Word(at_);
            found_.push_back(at_);
            at_ += 4;
        }
        const bool isText = (flags & 0xFU) == 9;
        for (std::size_t word = 0; !isText && word + 4 <= length; word += 4) {
            found_.push_back(at_ + word);
        }
        at_ += length;
    }

    std::string_view bytes_;
    std::size_t at_;
    std::vector<std::size_t> found_;
};

// As the decoder writes the texts of a batch.
std::string Hex(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += kDigits[value >> 4U];
        hex += kDigits[value & 0xFU];
    }
    return hex;
}

struct Outcome {
    std::string text;
    std::string error = "-";
};

struct DamagedFile {
    std::string bytes;
    std::size_t at;  // nothing before this offset differs from the sample
};

std::optional<std::string> MemoryDirectory() {
    if (access("/dev/shm", W_OK | X_OK) == 0) {
        return "/dev/shm";
    }
    const char* usual = getenv("TMPDIR");
    return usual != nullptr ? std::optional<std::string>(usual) : std::nullopt;
}

class DamageSweepTest : public testing::Test {
  protected:
    DamageSweepTest() {
        std::size_t end = kHeaderBytes;
        std::vector<LogBlock> before;
        for (const LogBlock& block : blocks_) {
            end += block.Bytes().size();
            before.push_back(block);
            goodUntil_.emplace_back(end, Export(FileOf(before), " ").text);
        }
    }

    Outcome Export(const std::string& file, const std::string& separator) {
        const std::string log = directory_ / "logs/zynlog-0001.txt";
        const std::string path = directory_ / "out.txt";
        std::filesystem::remove(log);
        std::filesystem::remove(path);
        WriteFile(log, file);
        Outcome outcome;
        try {
            LogStream stream;
            stream.GetAllLogFiles(directory_ / "logs", kLogPrefix, kLogPart, kLogFormat);
            TextFile text(path, {});
            ProgressDisplay none(nullptr);
            ZynDataTextExporter::Export<kReorderLimit>(stream, text, separator, none, FixedClock);
            text.Close();
        } catch (const std::exception& failure) {
            outcome.error = failure.what();
        }
        if (std::filesystem::exists(path)) {
            outcome.text = ReadFile(path);
        }
        return outcome;
    }

    // Exports every file and compares with what the decoder says of all of them.
    void Check(const std::vector<DamagedFile>& files, const std::string& separator) {
        std::string cases;
        AppendU32(cases, static_cast<std::uint32_t>(files.size()));
        for (const DamagedFile& file : files) {
            AppendU32(cases, 1);
            AppendU32(cases, static_cast<std::uint32_t>(file.bytes.size()));
            cases += file.bytes;
        }
        WriteFile(directory_ / "cases", cases);
        std::istringstream expected(Decode(separator));
        for (const DamagedFile& file : files) {
            const Outcome outcome = Export(file.bytes, separator);
            std::string line;
            ASSERT_TRUE(std::getline(expected, line)) << "the decoder has no more lines";
            ASSERT_EQ(Hex(outcome.text) + " " + outcome.error, line)
                << "damage at " << file.at << " of " << file.bytes.size() << " bytes; text:\n"
                << outcome.text;
            if (separator == " ") {
                CheckLinesBefore(file.at, outcome.text);
            }
        }
    }

    std::string Decode(const std::string& separator) {
        ProgramRun run;
        run.program = ZYN_PYTHON;
        run.arguments = {ZYN_SOURCE_DIR "/testing/oracle/zynlog_decoder.py", "--default-time",
                         "1700000000.123", "--batch", directory_ / "cases"};
        if (!separator.empty()) {
            run.arguments.insert(run.arguments.end(), {"-l", separator});
        }
        run.environment = {"TZ=UTC0", "PYTHONDONTWRITEBYTECODE=1"};
        run.deadline = std::chrono::seconds(100);
        const ProgramResult result = RunProgram(run);
        EXPECT_EQ(result.status, 0) << result.error;
        return result.output;
    }

    void CheckLinesBefore(std::size_t at, const std::string& text) const {
        for (const auto& [end, good] : goodUntil_) {
            if (end <= at) {
                ASSERT_EQ(text.substr(0, good.size()), good) << "damage at " << at;
            }
        }
    }

    const EnvironmentVariable zone_{"TZ", "UTC0"};
    // In memory where there is such a place: tens of thousands of small files wear out a disk.
    const EnvironmentVariable temporary_{"TMPDIR", MemoryDirectory()};
    const TempDirectory directory_;
    const std::string logs_ = directory_.MakeDirectory("logs");
    const std::vector<LogBlock> blocks_ = SampleBlocks();
    const std::string sample_ = FileOf(blocks_);
    // Where each block of the sample ends, and the text of the export up to there.
    std::vector<std::pair<std::size_t, std::string>> goodUntil_;
};

TEST_F(DamageSweepTest, SampleItselfIsExportedWhole) {
    EXPECT_GT(sample_.size(), 1900U);
    EXPECT_LT(sample_.size(), 2400U);
    Check({{sample_, sample_.size()}}, " ");
    EXPECT_EQ(Export(sample_, " ").error, "-");
}

TEST_F(DamageSweepTest, EveryBitFlipped) {
    std::vector<DamagedFile> files;
    for (std::size_t at = 0; at < sample_.size(); ++at) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            files.push_back({WithBitFlipped(sample_, at, bit), at});
        }
    }
    Check(files, " ");
}

TEST_F(DamageSweepTest, EveryByteSetToEdgeValues) {
    std::vector<DamagedFile> files;
    for (std::size_t at = kHeaderBytes; at < sample_.size(); ++at) {
        for (const char* byte : {"\x7F", "\x80", "\xFF"}) {
            files.push_back({WithBytesAt(sample_, at, byte), at});
        }
        files.push_back({WithBytesAt(sample_, at, std::string_view("\0", 1)), at});
    }
    Check(files, "|");
}

TEST_F(DamageSweepTest, EveryTruncation) {
    std::vector<DamagedFile> files;
    for (std::size_t size = 0; size <= sample_.size(); ++size) {
        files.push_back({Truncated(sample_, size), size});
    }
    Check(files, " ");
}

TEST_F(DamageSweepTest, EveryWordSetToEdgeValues) {
    const std::vector<std::size_t> fields = FieldFinder(sample_).Found();
    EXPECT_GT(fields.size(), 60U);
    std::vector<DamagedFile> files;
    for (const std::size_t at : fields) {
        for (const std::uint32_t value :
             {0U, 1U, 2U, 7U, 8U, 9U, 39U, 41U, 0xFFU, 0xFFFFU, 0x10000U, 0x7FFFFFFFU, 0x80000000U,
              0xFFFFFFF0U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
            std::string word;
            AppendU32(word, value);
            files.push_back({WithBytesAt(sample_, at, word), at});
        }
    }
    Check(files, " ");
}

TEST_F(DamageSweepTest, BlocksDroppedDoubledAndSwapped) {
    std::vector<DamagedFile> files;
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
        std::vector<LogBlock> dropped = blocks_;
        dropped.erase(dropped.begin() + static_cast<std::ptrdiff_t>(i));
        files.push_back({FileOf(dropped), 0});
        std::vector<LogBlock> doubled = blocks_;
        doubled.insert(doubled.begin() + static_cast<std::ptrdiff_t>(i), blocks_[i]);
        files.push_back({FileOf(doubled), 0});
        for (std::size_t j = 0; j < i; ++j) {
            std::vector<LogBlock> swapped = blocks_;
            std::swap(swapped[i], swapped[j]);
            files.push_back({FileOf(swapped), 0});
        }
    }
    Check(files, "");
}

TEST_F(DamageSweepTest, RecordsDroppedDoubledAndSwapped) {
    std::vector<DamagedFile> files;
    // With the block's size kept right, and with the old one left in the header.
    const auto add = [&](std::size_t block, const auto& damage) {
        for (const bool sizeKept : {false, true}) {
            std::vector<LogBlock> blocks = blocks_;
            damage(blocks[block]);
            if (sizeKept) {
                blocks[block].DataSize(static_cast<std::uint32_t>(blocks_[block].Data().size()));
            }
            files.push_back({FileOf(blocks), 0});
        }
    };
    for (std::size_t block = 0; block < blocks_.size(); ++block) {
        for (std::size_t i = 0; i < blocks_[block].RecordCount(); ++i) {
            add(block, [i](LogBlock& damaged) { damaged.DropRecord(i); });
            add(block, [i](LogBlock& damaged) { damaged.DoubleRecord(i); });
            for (std::size_t j = 0; j < i; ++j) {
                add(block, [i, j](LogBlock& damaged) { damaged.SwapRecords(i, j); });
            }
        }
    }
    Check(files, "; ");
}

TEST_F(DamageSweepTest, ZerosAppended) {
    std::vector<DamagedFile> files;
    for (std::size_t count = 1; count <= 300; ++count) {
        files.push_back({WithZerosAppended(sample_, count), sample_.size()});
    }
    Check(files, " ");
}

}  // namespace
