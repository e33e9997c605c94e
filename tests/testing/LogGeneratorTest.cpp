// Tests of the generated logs: what they hold, and that a seed always gives the same bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "testing/logs/LogGenerator.h"
#include "testing/process/Files.h"

namespace {

constexpr std::size_t kHeaderBytes = 256;

std::uint32_t U32At(std::string_view bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = (value << 8) | static_cast<unsigned char>(bytes.at(offset + i));
    }
    return value;
}

// What a record holds, read by the few lines below, which know only what the generator writes.
struct Seen {
    std::uint32_t sequence = 0;
    std::uint32_t seconds = 0;
    std::uint32_t milliseconds = 0;
    std::uint32_t tid = 0;
    std::uint32_t pid = 0;
    std::string module;
    std::string client;
    std::string label;
    std::string message;
    std::uint32_t control = 0;
    bool hasTime = false;
    bool hasMessage = false;
};

void SeePacket(std::string_view packet, unsigned id, std::string_view payload, Seen& seen) {
    if (id == kLogIdTime && packet[0] == 0x2A) {
        seen.hasTime = true;
        seen.seconds = U32At(payload, 0);
        seen.milliseconds = U32At(payload, 4) & 0xFFFFU;
    } else if (id == kLogIdControl && packet[0] == 0x2A) {
        seen.control = U32At(payload, 0);
    } else if (id == kLogIdTid) {
        seen.tid = U32At(payload, 0);
    } else if (id == kLogIdPid) {
        seen.pid = U32At(payload, 0);
    } else if (id == kLogIdModule) {
        seen.module = payload;
    } else if (id == kLogIdClient) {
        seen.client = payload;
    } else if (id == kLogIdLabel) {
        seen.label = payload;
    } else {
        ASSERT_EQ(packet[0], 0x09);
        seen.hasMessage = true;
        seen.message = payload;
    }
}

Seen SeeRecord(std::uint32_t sequence, std::string_view data) {
    Seen seen;
    seen.sequence = sequence;
    while (!data.empty()) {
        const auto first = static_cast<unsigned char>(data[0]);
        std::size_t at = 1;
        unsigned id = 0;
        if ((first & 0x20U) != 0) {
            id = static_cast<unsigned char>(data.at(1));
            at += 2;
        }
        std::size_t length = 4;
        if ((first & 0x08U) != 0) {
            length = U32At(data, at);
            at += 4;
        }
        SeePacket(data, id, data.substr(at, length), seen);
        data.remove_prefix(at + length);
    }
    return seen;
}

using SeenBlock = std::vector<Seen>;

std::vector<SeenBlock> SeeBlocks(std::string_view log) {
    std::vector<SeenBlock> blocks;
    while (!log.empty()) {
        EXPECT_EQ(log.substr(0, 5), std::string_view("\x0A\x28\0\0\0", 5));
        EXPECT_EQ(log.substr(5, 8), std::string_view("node-17\0", 8));
        const std::size_t size = U32At(log, 41);
        std::string_view data = log.substr(45).substr(0, size);
        EXPECT_EQ(data.size(), size);
        log.remove_prefix(45 + size);
        SeenBlock block;
        while (!data.empty()) {
            EXPECT_EQ(data.substr(0, 5), std::string_view("\x0A\x08\0\0\0", 5));
            const std::size_t length = U32At(data, 9);
            block.push_back(SeeRecord(U32At(data, 5), data.substr(13).substr(0, length)));
            data.remove_prefix(13 + length);
        }
        blocks.push_back(std::move(block));
    }
    return blocks;
}

std::vector<Seen> Flat(const std::vector<SeenBlock>& blocks) {
    std::vector<Seen> all;
    for (const SeenBlock& block : blocks) {
        all.insert(all.end(), block.begin(), block.end());
    }
    return all;
}

std::vector<std::uint32_t> Sequences(const std::vector<Seen>& records) {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(records.size());
    for (const Seen& record : records) {
        numbers.push_back(record.sequence);
    }
    return numbers;
}

std::vector<std::string> Generate(const LogGeneratorOptions& options) {
    const TempDirectory directory;
    const std::uint64_t bytes = WriteGeneratedLog(options, directory.Path());
    std::vector<std::string> files;
    std::uint64_t sum = 0;
    for (auto& [name, content] : ReadDirectory(directory.Path())) {
        sum += content.size();
        files.push_back(std::move(content));
    }
    EXPECT_EQ(bytes, sum);
    return files;
}

// The blocks of all files in one run.
std::string BlocksOf(const std::vector<std::string>& files) {
    std::string all;
    for (const std::string& file : files) {
        EXPECT_EQ(file.substr(0, kHeaderBytes), LogWriter::FileHeader());
        all += file.substr(kHeaderBytes);
    }
    return all;
}

std::vector<std::uint32_t> OneTo(std::uint32_t count) {
    std::vector<std::uint32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 1U);
    return numbers;
}

// A checksum to pin bytes by.
std::uint64_t Checksum(std::string_view bytes) {
    std::uint64_t sum = 0xCBF29CE484222325U;
    for (const char byte : bytes) {
        sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
    }
    return sum;
}

TEST(LogGeneratorTest, RecordsAreNumberedTimedAndFilled) {
    LogGeneratorOptions options;
    options.records = 2000;
    options.controlPercent = 0;
    options.multilinePercent = 0;
    options.stepUs = 1500;
    const std::vector<Seen> records = Flat(SeeBlocks(BlocksOf(Generate(options))));
    ASSERT_EQ(Sequences(records), OneTo(2000));
    std::set<std::string> modules;
    std::set<std::uint32_t> pids;
    std::size_t shortest = 1000;
    std::size_t longest = 0;
    for (std::uint32_t i = 0; i < records.size(); ++i) {
        const Seen& record = records[i];
        ASSERT_EQ(record.seconds, 1700000000U + i * 1500 / 1000000);
        ASSERT_EQ(record.milliseconds, i * 1500 / 1000 % 1000);
        ASSERT_GT(record.tid, 0xB0000000U);
        ASSERT_TRUE(record.module.size() >= 6 && record.module.size() <= 16) << record.module;
        ASSERT_TRUE(record.client.size() >= 6 && record.client.size() <= 16) << record.client;
        ASSERT_FALSE(record.label.empty());
        ASSERT_TRUE(record.hasMessage);
        ASSERT_EQ(record.message.find('\n'), std::string::npos);
        modules.insert(record.module);
        pids.insert(record.pid);
        shortest = std::min(shortest, record.message.size());
        longest = std::max(longest, record.message.size());
    }
    EXPECT_EQ(modules.size(), 28U);
    EXPECT_EQ(pids.size(), 7U);
    EXPECT_TRUE(shortest >= 20 && shortest < 25) << shortest;
    EXPECT_TRUE(longest <= 400 && longest > 395) << longest;
}

TEST(LogGeneratorTest, PercentagesOfSpecialRecords) {
    LogGeneratorOptions options;
    options.records = 4000;
    options.controlPercent = 25;
    options.multilinePercent = 50;
    options.noTimePercent = 10;
    std::size_t controls = 0;
    std::size_t messages = 0;
    std::size_t multiline = 0;
    std::size_t timeless = 0;
    std::set<std::uint32_t> codes;
    for (const Seen& record : Flat(SeeBlocks(BlocksOf(Generate(options))))) {
        ASSERT_NE(record.hasMessage, record.control != 0);
        controls += record.control != 0 ? 1U : 0U;
        messages += record.hasMessage ? 1U : 0U;
        timeless += record.hasTime ? 0U : 1U;
        if (record.control != 0) {
            codes.insert(record.control);
        }
        if (record.message.find('\n') != std::string::npos) {
            ASSERT_EQ(record.message.back(), '\n');
            ++multiline;
        }
    }
    EXPECT_NEAR(static_cast<double>(controls), 1000, 150);
    EXPECT_NEAR(static_cast<double>(multiline), static_cast<double>(messages) / 2, 200);
    EXPECT_NEAR(static_cast<double>(timeless), 400, 100);
    EXPECT_EQ(codes, (std::set<std::uint32_t>{1, 2, 3, 4, 5, 6, 7}));
}

TEST(LogGeneratorTest, PercentagesOfNoneAndAll) {
    LogGeneratorOptions options;
    options.records = 300;
    options.controlPercent = 100;
    options.noTimePercent = 100;
    for (const Seen& record : Flat(SeeBlocks(BlocksOf(Generate(options))))) {
        ASSERT_NE(record.control, 0U);
        ASSERT_FALSE(record.hasTime);
    }
}

TEST(LogGeneratorTest, LengthsHoldForMessagesNamesAndBlocks) {
    LogGeneratorOptions options;
    options.records = 1000;
    options.controlPercent = 0;
    options.messageBytes = {37, 37};
    options.nameBytes = {20, 30};
    options.blockBytes = {5000, 6000};
    const std::vector<std::string> files = Generate(options);
    const std::vector<SeenBlock> blocks = SeeBlocks(BlocksOf(files));
    // Names are 20 characters then, so records have 145 to 148 bytes with their headers.
    EXPECT_TRUE(blocks.size() >= 25 && blocks.size() <= 35) << blocks.size();
    for (const Seen& record : Flat(blocks)) {
        ASSERT_EQ(record.message.size(), 37U);
        ASSERT_EQ(record.module.size(), 20U) << record.module;
        ASSERT_EQ(record.client.size(), 20U) << record.client;
    }
}

TEST(LogGeneratorTest, EmptyMessagesAndBlocksOfOneRecord) {
    LogGeneratorOptions options;
    options.records = 50;
    options.controlPercent = 0;
    options.multilinePercent = 100;
    options.messageBytes = {0, 1};
    options.blockBytes = {0, 0};
    const std::vector<SeenBlock> blocks = SeeBlocks(BlocksOf(Generate(options)));
    ASSERT_EQ(blocks.size(), 50U);
    for (const SeenBlock& block : blocks) {
        ASSERT_EQ(block.size(), 1U);
        ASSERT_TRUE(block[0].message.empty() || block[0].message == "\n");
    }
}

TEST(LogGeneratorTest, ShuffledOrdersStayInTheirGroups) {
    for (const LogOrder order : {LogOrder::kWindow, LogOrder::kShuffled}) {
        LogGeneratorOptions options;
        options.records = 2000;
        options.order = order;
        options.window = 16;
        std::uint32_t next = 1;
        std::size_t moved = 0;
        for (const SeenBlock& block : SeeBlocks(BlocksOf(Generate(options)))) {
            std::vector<std::uint32_t> numbers = Sequences(block);
            for (std::size_t i = 0; i < numbers.size(); ++i) {
                const std::size_t right = numbers[i] - next;
                moved += right != i ? 1U : 0U;
                ASSERT_LT(right, numbers.size());
                if (order == LogOrder::kWindow) {
                    ASSERT_EQ(right / 16, i / 16);
                }
                // Time goes with the number.
                ASSERT_EQ(block[i].milliseconds, (numbers[i] - 1) * 500 / 1000 % 1000);
            }
            next += static_cast<std::uint32_t>(numbers.size());
            std::sort(numbers.begin(), numbers.end());
            ASSERT_EQ(std::unique(numbers.begin(), numbers.end()), numbers.end());
        }
        EXPECT_EQ(next, 2001U);
        EXPECT_GT(moved, 1500U);
    }
}

TEST(LogGeneratorTest, FilesShareTheRecordsEvenly) {
    LogGeneratorOptions options;
    options.records = 1001;
    options.files = 7;
    const std::vector<std::string> files = Generate(options);
    ASSERT_EQ(files.size(), 7U);
    for (const std::string& file : files) {
        EXPECT_EQ(Flat(SeeBlocks(std::string_view(file).substr(kHeaderBytes))).size(), 143U);
    }
    EXPECT_EQ(Sequences(Flat(SeeBlocks(BlocksOf(files)))), OneTo(1001));
}

TEST(LogGeneratorTest, SpannedFilesEndInTheMiddleOfBlocks) {
    LogGeneratorOptions options;
    options.records = 3000;
    options.files = 40;
    options.span = true;
    const std::vector<std::string> files = Generate(options);
    ASSERT_EQ(files.size(), 40U);
    const std::string all = BlocksOf(files);
    EXPECT_EQ(Sequences(Flat(SeeBlocks(all))), OneTo(3000));
    // Cutting leaves the content as it is.
    options.files = 1;
    EXPECT_EQ(BlocksOf(Generate(options)), all);
    std::size_t begin = 0;
    std::size_t inside = 0;
    std::set<std::size_t> blockStarts;
    for (std::size_t at = 0; at < all.size(); at += 45 + U32At(all, at + 41)) {
        blockStarts.insert(at);
    }
    for (const std::string& file : files) {
        EXPECT_GT(file.size(), kHeaderBytes + 1000);
        begin += file.size() - kHeaderBytes;
        inside += blockStarts.contains(begin) ? 0U : 1U;
    }
    EXPECT_GE(inside, 35U);
}

TEST(LogGeneratorTest, MoreFilesThanRecords) {
    for (const bool span : {false, true}) {
        LogGeneratorOptions options;
        options.records = 3;
        options.files = 10;
        options.span = span;
        const std::vector<std::string> files = Generate(options);
        EXPECT_EQ(files.size(), 10U);
        EXPECT_EQ(Sequences(Flat(SeeBlocks(BlocksOf(files)))), OneTo(3));
        options.records = 0;
        EXPECT_EQ(Generate(options), std::vector<std::string>(10, LogWriter::FileHeader()));
    }
}

TEST(LogGeneratorTest, SeedDecidesTheBytes) {
    LogGeneratorOptions options;
    options.records = 500;
    const std::vector<std::string> first = Generate(options);
    EXPECT_EQ(Generate(options), first);
    options.seed = 2;
    EXPECT_NE(Generate(options), first);
}

TEST(LogGeneratorTest, BytesAreTheSameOnEveryMachine) {
    LogGeneratorOptions options;
    options.records = 500;
    options.files = 3;
    options.noTimePercent = 5;
    EXPECT_EQ(Checksum(BlocksOf(Generate(options))), 0xFC826C6A91D3480CU);
    options.order = LogOrder::kWindow;
    EXPECT_EQ(Checksum(BlocksOf(Generate(options))), 0x5FA629A46D1F4ABDU);
    options.order = LogOrder::kShuffled;
    options.span = true;
    options.seed = 0xFFFFFFFFFFFFFFFFU;
    EXPECT_EQ(Checksum(Generate(options)[1]), 0xAB0BF42A27199AB0U);
}

// The orders of the records' packets, as words of letters.
std::vector<std::string> OrdersOf(const LogGeneratorOptions& options) {
    std::vector<std::string> orders;
    const std::string bytes = BlocksOf(Generate(options));
    const auto number = [&bytes](std::size_t at, std::size_t width) {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < width; ++i) {
            value |= std::uint32_t{static_cast<unsigned char>(bytes.at(at + i))} << (8 * i);
        }
        return value;
    };
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t record = at + 45;
        for (at = record + number(at + 41, 4); record < at;) {
            std::size_t packet = record + 13;
            std::string order;
            for (record = packet + number(record + 9, 4); packet < record;) {
                const std::uint32_t flags = number(packet, 1);
                const std::uint32_t id = (flags & 0x20U) != 0 ? number(packet + 1, 2) : 0;
                constexpr std::size_t kImplied[] = {0, 1, 1, 2, 4, 8, 0, 0};
                const std::size_t head = (flags & 0x20U) != 0 ? 3 : 1;
                const std::size_t length =
                    (flags & 8U) != 0 ? 4 + number(packet + head, 4) : kImplied[flags & 7U];
                packet += head + length;
                order += id == 2    ? 't'
                         : id == 3  ? (flags & 0x10U) != 0 ? 'v' : 'T'
                         : id == 4  ? 'p'
                         : id == 32 ? 'm'
                         : id == 33 ? 'c'
                         : id == 34 ? 'l'
                         : id == 0  ? (flags & 0x0FU) == 9 ? 'M' : '8'
                                    : '?';
            }
            orders.push_back(order);
        }
    }
    return orders;
}

TEST(LogGeneratorTest, PacketsHaveTheOrderThatIsGiven) {
    LogGeneratorOptions options;
    options.records = 300;
    options.controlPercent = 0;
    EXPECT_EQ(OrdersOf(options), std::vector<std::string>(300, "tTpmclM"));
    options.packets = "Mlcmt8Tpv";
    EXPECT_EQ(OrdersOf(options), std::vector<std::string>(300, "Mlcmt8Tpv"));
    options.packets = "tM,mclMtpT,";
    const std::vector<std::string> several = OrdersOf(options);
    EXPECT_EQ(std::set<std::string>(several.begin(), several.end()),
              (std::set<std::string>{"", "tM", "mclMtpT"}));
}

TEST(LogGeneratorTest, PacketsHaveAnyOrderAtRandomOrByWriter) {
    LogGeneratorOptions options;
    options.records = 1000;
    options.controlPercent = 0;
    options.packets = "random";
    const std::vector<std::string> random = OrdersOf(options);
    EXPECT_GT(std::set<std::string>(random.begin(), random.end()).size(), 800U);
    options.packets = "writer";
    const std::vector<std::string> writers = OrdersOf(options);
    EXPECT_EQ(std::set<std::string>(writers.begin(), writers.end()).size(), 7U);
    for (std::string order : {random[7], random[500], writers[7]}) {
        EXPECT_TRUE(std::is_permutation(order.begin(), order.end(), PacketOrder::kDefault.begin(),
                                        PacketOrder::kDefault.end()))
            << order;
    }
    options.packets = "tTpmclM";
    options.extraPercent = 40;
    const std::vector<std::string> extras = OrdersOf(options);
    const auto plain = std::count(extras.begin(), extras.end(), "tTpmclM");
    EXPECT_TRUE(plain > 500 && plain < 700) << plain;
}

TEST(LogGeneratorTest, FullDiskIsAnError) {
    const TempDirectory directory;
    std::filesystem::create_symlink("/dev/full", directory / "zynlog-0001.txt");
    EXPECT_THROW(WriteGeneratedLog({}, directory.Path()), std::system_error);
    EXPECT_THROW(WriteGeneratedLog({}, directory / "missing"), std::system_error);
}

TEST(LogGeneratorTest, OptionsThatMakeNoLogAreRefused) {
    const auto refused = [](auto change) {
        LogGeneratorOptions options;
        change(options);
        EXPECT_THROW(LogGenerator{options}, std::invalid_argument);
    };
    refused([](LogGeneratorOptions& o) { o.files = 0; });
    refused([](LogGeneratorOptions& o) { o.files = 1000001; });
    refused([](LogGeneratorOptions& o) { o.window = 0; });
    refused([](LogGeneratorOptions& o) { o.blockBytes = {2, 1}; });
    refused([](LogGeneratorOptions& o) { o.messageBytes = {2, 1}; });
    refused([](LogGeneratorOptions& o) { o.messageBytes = {0, 1048577}; });
    refused([](LogGeneratorOptions& o) { o.nameBytes = {0, 1001}; });
    refused([](LogGeneratorOptions& o) { o.controlPercent = 101; });
    refused([](LogGeneratorOptions& o) { o.multilinePercent = 101; });
    refused([](LogGeneratorOptions& o) { o.noTimePercent = 101; });
    refused([](LogGeneratorOptions& o) { o.extraPercent = 101; });
    refused([](LogGeneratorOptions& o) { o.packets = "tTpmclM,random"; });
    refused([](LogGeneratorOptions& o) { o.startTime = 0xFFFFFFFF; });
    refused([](LogGeneratorOptions& o) { o.stepUs = 0xFFFFFFFFFFFFFFFFU; });
}

}  // namespace
