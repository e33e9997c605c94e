// Makes realistic logs from a seed (see LogGenerator.h).

#include "testing/logs/LogGenerator.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

constexpr std::uint32_t kMostFiles = 1000000;
constexpr std::uint32_t kMostBlockBytes = 64U << 20;
constexpr std::uint32_t kMostMessageBytes = 1U << 20;
constexpr std::uint32_t kMostNameBytes = 1000;
constexpr std::size_t kFileBufferBytes = std::size_t{1} << 20;
constexpr std::uint64_t kUsPerSecond = 1000000;
constexpr std::string_view kHost = "node-17";

// The processes that trace, each with threads as 32-bit programs number them.
struct Process {
    std::uint32_t pid;
    std::uint32_t threads;
};
constexpr std::array<Process, 7> kProcesses{
    {{812, 4}, {907, 1}, {1344, 8}, {1345, 8}, {2210, 2}, {15873, 16}, {31002, 3}}};
constexpr std::uint32_t kFirstThread = 0xB7D52B70U;
constexpr std::uint32_t kThreadStep = 0x00801000U;

// Zone field of the time stamp: minutes west of Greenwich, here one hour east.
constexpr std::uint16_t kZone = 0xFFC4;

constexpr std::uint32_t kControlCodes = 7;

constexpr std::uint64_t kPacketSeed = 0x5A5A5A5A5A5A5A5AU;
// An id that readers give no meaning, and the most bytes of a packet that they pass over.
constexpr std::uint16_t kOtherId = 77;
constexpr std::uint32_t kMostSkipped = 12;
// Payload bytes of the type codes that give no length.
constexpr std::array<std::uint8_t, 8> kImpliedBytes{0, 1, 1, 2, 4, 8, 0, 0};

void Require(bool condition, const char* text) {
    if (!condition) {
        throw std::invalid_argument(text);
    }
}

void RequireRange(const LogRange& range, std::uint32_t most, const char* text) {
    Require(range.least <= range.most && range.most <= most, text);
}

const LogGeneratorOptions& Checked(const LogGeneratorOptions& options) {
    CheckLogGeneratorOptions(options);
    return options;
}

class OutputFile {
  public:
    explicit OutputFile(std::string path)
        : path_(std::move(path)), file_(std::fopen(path_.c_str(), "wb")) {
        if (file_ == nullptr) {
            Fail();
        }
        // Without the larger buffer it is only slower.
        static_cast<void>(std::setvbuf(file_, nullptr, _IOFBF, kFileBufferBytes));
    }
    ~OutputFile() {
        if (file_ != nullptr) {
            static_cast<void>(std::fclose(file_));
        }
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::string_view bytes) {
        if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
            Fail();
        }
    }

    void Close() {
        if (std::fclose(std::exchange(file_, nullptr)) != 0) {
            Fail();
        }
    }

  private:
    std::string path_;
    std::FILE* file_;

    [[noreturn]] void Fail() const {
        throw std::system_error(errno, std::generic_category(), "cannot write " + path_);
    }
};

// The files of one log in the order of writing, and each one's share of the records.
class FileRow {
  public:
    FileRow(const LogGeneratorOptions& options, std::string directory)
        : records_(options.records), files_(options.files), directory_(std::move(directory)) {
        Open();
    }

    // Number of the first record that no longer belongs to the current file.
    [[nodiscard]] std::uint32_t End() const {
        return static_cast<std::uint32_t>(std::uint64_t{records_} * number_ / files_);
    }

    [[nodiscard]] bool IsLast() const { return number_ == files_; }

    [[nodiscard]] std::uint64_t Bytes() const { return bytes_; }

    void Write(std::string_view bytes) {
        file_->Write(bytes);
        bytes_ += bytes.size();
    }

    void Next() {
        file_->Close();
        ++number_;
        Open();
    }

    void Close() { file_->Close(); }

  private:
    std::uint32_t records_;
    std::uint32_t files_;
    std::string directory_;
    std::uint32_t number_ = 1;
    std::uint64_t bytes_ = 0;
    std::unique_ptr<OutputFile> file_;

    void Open() {
        file_ =
            std::make_unique<OutputFile>(directory_ + "/" + LogWriter::FileName(number_, files_));
        Write(LogWriter::FileHeader());
    }
};

// Writes a block that begins with record `first`; where a file's share ends in it, the file ends
// in the middle of the last record of its share.
void WriteSpanning(const LogGenerator::Block& block, std::uint32_t first, LogRandom& random,
                   FileRow& files) {
    std::size_t written = 0;
    const std::uint64_t end = std::uint64_t{first} + block.records.size();
    while (!files.IsLast() && files.End() <= end) {
        if (files.End() > first) {
            const std::size_t last = files.End() - first - 1;
            const std::size_t from = last == 0 ? 0 : block.records[last];
            const std::size_t to =
                last + 1 < block.records.size() ? block.records[last + 1] : block.bytes.size();
            const std::size_t cut =
                std::max(written, from + 1 + random.Below(static_cast<std::uint32_t>(to - from)));
            files.Write(std::string_view(block.bytes).substr(written, cut - written));
            written = cut;
        }
        files.Next();
    }
    files.Write(std::string_view(block.bytes).substr(written));
}

}  // namespace

void CheckLogGeneratorOptions(const LogGeneratorOptions& options) {
    Require(options.files >= 1 && options.files <= kMostFiles, "files: 1 to 1000000");
    Require(options.window >= 1, "window: at least 1");
    RequireRange(options.blockBytes, kMostBlockBytes, "block-bytes: MIN-MAX, at most 67108864");
    RequireRange(options.messageBytes, kMostMessageBytes, "message: MIN-MAX, at most 1048576");
    RequireRange(options.nameBytes, kMostNameBytes, "names: MIN-MAX, at most 1000");
    Require(options.controlPercent <= 100, "control-percent: 0 to 100");
    Require(options.multilinePercent <= 100, "multiline-percent: 0 to 100");
    Require(options.noTimePercent <= 100, "no-time-percent: 0 to 100");
    Require(options.extraPercent <= 100, "extra-percent: 0 to 100");
    static_cast<void>(PacketOrder(options.packets, 0, 0));
    const std::uint64_t room =
        (std::uint64_t{std::numeric_limits<std::uint32_t>::max()} - options.startTime) *
        kUsPerSecond;
    Require(options.records == 0 || options.stepUs <= room / options.records,
            "the log's time runs past what 32 bits of seconds can tell");
}

LogGenerator::LogGenerator(const LogGeneratorOptions& options)
    : options_(Checked(options)),
      random_(options.seed),
      modules_(LogModuleNames(options.nameBytes.least, options.nameBytes.most)),
      clients_(LogClientNames(options.nameBytes.least, options.nameBytes.most)),
      // Numbers of their own, so that a seed gives the same values in any order.
      packets_(options.packets, options.extraPercent, options.seed ^ kPacketSeed) {}

void LogGenerator::MakeRecord(std::uint32_t number) {
    Values values;
    values.hasTime = !random_.Percent(options_.noTimePercent);
    const std::uint64_t us =
        options_.startTime * kUsPerSecond + std::uint64_t{number} * options_.stepUs;
    values.seconds = static_cast<std::uint32_t>(us / kUsPerSecond);
    values.milliseconds = static_cast<std::uint16_t>(us % kUsPerSecond / 1000);
    const std::uint32_t writer = random_.Below(kProcesses.size());
    const Process& process = kProcesses[writer];
    values.thread = kFirstThread - random_.Below(process.threads) * kThreadStep;
    values.process = process.pid;
    const auto pick = [this](const std::vector<std::string>& names) -> const std::string& {
        return names[random_.Below(static_cast<std::uint32_t>(names.size()))];
    };
    values.module = pick(modules_);
    values.client = pick(clients_);
    values.label = PickLogLabel(random_);
    if (options_.calls) {
        const CallTrace::Event event =
            calls_.Next(values.process, values.thread, random_, message_);
        values.module = event.module;
        values.client = event.client;
        values.label = event.label;
    } else if (random_.Percent(options_.controlPercent)) {
        values.control = 1 + random_.Below(kControlCodes);
    } else {
        const std::uint32_t length =
            random_.Between(options_.messageBytes.least, options_.messageBytes.most);
        MakeLogMessage(random_, length, random_.Percent(options_.multilinePercent), message_);
    }
    record_.Reset(number + 1);
    for (const char letter : packets_.Next(writer)) {
        AddPacket(letter, values);
    }
}

void LogGenerator::AddPacket(char letter, const Values& values) {
    switch (letter) {
        case 't':
            if (values.hasTime) {
                record_.Time(values.seconds, values.milliseconds, kZone);
            }
            break;
        case 'T':
            record_.Tid(values.thread);
            break;
        case 'p':
            record_.Pid(values.process);
            break;
        case 'm':
            record_.Module(values.module);
            break;
        case 'c':
            record_.Client(values.client);
            break;
        case 'l':
            record_.Label(values.label);
            break;
        case 'M':
            if (values.control != 0) {
                record_.Control(values.control, values.process);
            } else {
                record_.Message(message_);
            }
            break;
        default:
            AddMeaningless(letter, values);
            break;
    }
}

void LogGenerator::AddMeaningless(char letter, const Values& values) {
    const std::string skipped(packets_.Random().Below(kMostSkipped + 1), 'z');
    switch (letter) {
        case '8':
            record_.Packet(LogPacket(LogPacketCode::kSized).Raw(skipped));
            break;
        case 'b':
            record_.Packet(LogPacket::Binary(kOtherId, skipped));
            break;
        case 's':
            record_.String(kOtherId, skipped);
            break;
        case 'v':
            record_.Packet(
                LogPacket(LogPacketCode::kU32).Id(kLogIdTid).ValueFlag().U32(values.process));
            break;
        default: {
            const auto code = static_cast<unsigned>(letter - '0');
            record_.Packet(LogPacket(code).Id(kOtherId).Raw(std::string(kImpliedBytes[code], 'z')));
            break;
        }
    }
}

// Makes records in order until one does not fit; that one stays for the next block.
void LogGenerator::FillBlock(std::uint32_t most) {
    const std::size_t room = random_.Between(options_.blockBytes.least, options_.blockBytes.most);
    data_.clear();
    starts_.clear();
    while (starts_.size() < most) {
        if (!pending_) {
            MakeRecord(made_ + static_cast<std::uint32_t>(starts_.size()));
            pending_ = true;
        }
        if (!starts_.empty() && data_.size() + record_.Size() > room) {
            break;
        }
        starts_.push_back(data_.size());
        record_.AppendTo(data_);
        pending_ = false;
    }
}

// Decides in which order the block's records are laid down.
void LogGenerator::Arrange() {
    order_.resize(starts_.size());
    std::iota(order_.begin(), order_.end(), 0U);
    if (options_.order == LogOrder::kInOrder) {
        return;
    }
    const std::size_t group = options_.order == LogOrder::kWindow ? options_.window : order_.size();
    for (std::size_t begin = 0; begin < order_.size(); begin += group) {
        const std::size_t end = begin + std::min(group, order_.size() - begin);
        for (std::size_t i = end - 1; i > begin; --i) {
            const auto choices = static_cast<std::uint32_t>(i - begin + 1);
            std::swap(order_[i], order_[begin + random_.Below(choices)]);
        }
    }
}

void LogGenerator::NextBlock(std::uint32_t most, Block& block) {
    FillBlock(most);
    Arrange();
    block.bytes.clear();
    block.records.clear();
    AppendBlockHeader(block.bytes, kHost, kProcesses[random_.Below(kProcesses.size())].pid,
                      static_cast<std::uint32_t>(data_.size()));
    for (const std::uint32_t index : order_) {
        const std::size_t start = starts_[index];
        const std::size_t end = index + 1 < starts_.size() ? starts_[index + 1] : data_.size();
        block.records.push_back(block.bytes.size());
        block.bytes.append(data_, start, end - start);
    }
    made_ += static_cast<std::uint32_t>(starts_.size());
}

std::uint64_t WriteGeneratedLog(const LogGeneratorOptions& options, const std::string& directory) {
    LogGenerator generator(options);
    LogGenerator::Block block;
    // Numbers of their own, so that the cuts leave the content of a seed as it is.
    LogRandom cuts(~options.seed);
    FileRow files(options, directory);
    while (generator.RecordsLeft() > 0) {
        const std::uint32_t first = options.records - generator.RecordsLeft();
        if (options.span) {
            generator.NextBlock(generator.RecordsLeft(), block);
            WriteSpanning(block, first, cuts, files);
            continue;
        }
        while (files.End() == first) {
            files.Next();
        }
        generator.NextBlock(files.End() - first, block);
        files.Write(block.bytes);
    }
    while (!files.IsLast()) {
        files.Next();
    }
    files.Close();
    return files.Bytes();
}
