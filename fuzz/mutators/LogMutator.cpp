// Mutates logs as blocks, records and packets, so that most of what comes out has the lengths that
// belong to it; damage that no writer would do comes from one mutation in eight, which is left as
// it is. The build says what the log of a target is made of.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mutators/Mutation.h"
#include "targets/LogCase.h"

namespace {

enum class Shape { kBlocks, kOneBlock, kPackets };
constexpr Shape kShape = Shape::ZYN_FUZZ_LOG_SHAPE;

struct Packet {
    std::uint8_t flags = 0;
    std::uint16_t id = 0;
    std::string payload;
};
struct Record {
    std::uint32_t number = 0;
    std::vector<Packet> packets;
};
struct Block {
    std::string writer;  // host name and process
    std::vector<Record> records;
};

constexpr std::size_t kWriterBytes = 36;
constexpr std::size_t kBlockHeadBytes = 45;
constexpr std::size_t kRecordHeadBytes = 13;

std::uint32_t NumberAt(std::string_view bytes, std::size_t offset, std::size_t width) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < width && offset + i < bytes.size(); ++i) {
        number |= std::uint32_t{static_cast<unsigned char>(bytes[offset + i])} << (8 * i);
    }
    return number;
}

void Append(std::string& out, std::uint32_t number, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) {
        out += static_cast<char>(number >> (8 * i));
    }
}

// Cuts count bytes off the front, or what there is.
std::string_view Cut(std::string_view& bytes, std::size_t count) {
    const std::string_view piece = bytes.substr(0, count);
    bytes.remove_prefix(piece.size());
    return piece;
}

std::size_t ImpliedLength(std::uint8_t flags) {
    constexpr std::array<std::size_t, 8> kLengths{0, 1, 1, 2, 4, 8, 0, 0};
    return kLengths[flags & 7U];
}

std::vector<Packet> PacketsOf(std::string_view bytes) {
    std::vector<Packet> packets;
    while (!bytes.empty()) {
        Packet packet;
        packet.flags = static_cast<std::uint8_t>(NumberAt(Cut(bytes, 1), 0, 1));
        if ((packet.flags & 0x20U) != 0) {
            packet.id = static_cast<std::uint16_t>(NumberAt(Cut(bytes, 2), 0, 2));
        }
        const std::size_t length =
            (packet.flags & 8U) != 0 ? NumberAt(Cut(bytes, 4), 0, 4) : ImpliedLength(packet.flags);
        packet.payload = Cut(bytes, length);
        packets.push_back(std::move(packet));
    }
    return packets;
}

std::vector<Block> BlocksOf(std::string_view bytes) {
    std::vector<Block> blocks;
    if (kShape == Shape::kPackets) {
        blocks.push_back({"", {{0, PacketsOf(bytes)}}});
        return blocks;
    }
    while (!bytes.empty()) {
        const std::string_view head = Cut(bytes, kBlockHeadBytes);
        Block block{std::string(head.substr(std::min<std::size_t>(5, head.size()), kWriterBytes)),
                    {}};
        std::string_view data = Cut(bytes, NumberAt(head, 41, 4));
        while (!data.empty()) {
            const std::string_view recordHead = Cut(data, kRecordHeadBytes);
            Record record{NumberAt(recordHead, 5, 4), {}};
            record.packets = PacketsOf(Cut(data, NumberAt(recordHead, 9, 4)));
            block.records.push_back(std::move(record));
        }
        blocks.push_back(std::move(block));
    }
    return blocks;
}

std::string BytesOf(const std::vector<Packet>& packets) {
    std::string out;
    for (const Packet& packet : packets) {
        out += static_cast<char>(packet.flags);
        if ((packet.flags & 0x20U) != 0) {
            Append(out, packet.id, 2);
        }
        if ((packet.flags & 8U) != 0) {
            Append(out, static_cast<std::uint32_t>(packet.payload.size()), 4);
            out += packet.payload;
        } else {
            std::string payload = packet.payload;
            payload.resize(ImpliedLength(packet.flags));
            out += payload;
        }
    }
    return out;
}

std::string BytesOf(const Block& block) {
    std::string data;
    for (const Record& record : block.records) {
        const std::string packets = BytesOf(record.packets);
        data += '\x0A';
        Append(data, 8, 4);
        Append(data, record.number, 4);
        Append(data, static_cast<std::uint32_t>(packets.size()), 4);
        data += packets;
    }
    std::string out(1, '\x0A');
    Append(out, 40, 4);
    std::string writer = block.writer;
    writer.resize(kWriterBytes);
    out += writer;
    Append(out, static_cast<std::uint32_t>(data.size()), 4);
    return out + data;
}

std::string BytesOf(const std::vector<Block>& blocks) {
    std::string out;
    for (const Block& block : blocks) {
        out += kShape == Shape::kPackets ? BytesOf(block.records.empty() ? std::vector<Packet>()
                                                                         : block.records[0].packets)
                                         : BytesOf(block);
        if (kShape != Shape::kBlocks) {
            break;
        }
    }
    return out;
}

Packet NewPacket(Dice& dice) {
    constexpr std::array<std::uint16_t, 9> kIds{0, 2, 3, 4, 6, 32, 33, 34, 7};
    constexpr std::array<std::uint8_t, 8> kFlags{0x29, 0x09, 0x2A, 0x24, 0x29, 0x09, 0x34, 0x00};
    const bool any = dice.Below(8) == 0;
    Packet packet;
    packet.flags = any ? static_cast<std::uint8_t>(dice.Below(256)) : kFlags[dice.Below(8)];
    packet.id = kIds[dice.Below(kIds.size())];
    constexpr std::array<std::size_t, 10> kSizes{0, 1, 4, 8, 12, 12, 30, 51, 200, 2100};
    packet.payload.assign(kSizes[dice.Below(kSizes.size())],
                          static_cast<char>('a' + dice.Below(6)));
    if ((packet.flags & 0x0FU) == 0x0A) {
        for (char& byte : packet.payload) {
            byte = static_cast<char>(dice.Below(4) == 0 ? dice.Below(256) : dice.Below(9));
        }
    } else if (dice.Below(4) == 0) {
        for (std::size_t i = 0; i < packet.payload.size(); i += 1 + dice.Below(40)) {
            packet.payload[i] = '\n';
        }
    }
    return packet;
}

// Removes, doubles, moves or swaps elements.
template <typename Element>
void Shuffle(std::vector<Element>& elements, Dice& dice) {
    if (elements.empty()) {
        return;
    }
    const std::size_t at = dice.Below(elements.size());
    const std::size_t other = dice.Below(elements.size());
    switch (dice.Below(3)) {
        case 0:
            elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(at));
            break;
        case 1: {
            const Element copy = elements[at];
            elements.insert(elements.begin() + static_cast<std::ptrdiff_t>(other), copy);
            break;
        }
        default:
            std::swap(elements[at], elements[other]);
            break;
    }
}

std::uint32_t NewNumber(std::uint32_t number, Dice& dice) {
    constexpr std::array<std::uint32_t, 6> kNumbers{0,           1,          0x7FFFFFFF,
                                                    0x80000000U, 0xFFFFFFFE, 0xFFFFFFFF};
    switch (dice.Below(3)) {
        case 0:
            return number + static_cast<std::uint32_t>(dice.Below(9)) - 4;
        case 1:
            return kNumbers[dice.Below(kNumbers.size())];
        default:
            return static_cast<std::uint32_t>(dice.Below(5000));
    }
}

void ChangeRecord(Record& record, Dice& dice) {
    switch (dice.Below(4)) {
        case 0:
            record.number = NewNumber(record.number, dice);
            break;
        case 1:
            Shuffle(record.packets, dice);
            break;
        case 2:
            record.packets.insert(record.packets.begin() + static_cast<std::ptrdiff_t>(dice.Below(
                                                               record.packets.size() + 1)),
                                  NewPacket(dice));
            break;
        default:
            if (!record.packets.empty()) {
                Packet& packet = record.packets[dice.Below(record.packets.size())];
                Mutate(packet.payload, 64);
            }
            break;
    }
}

void ChangeBlock(Block& block, Dice& dice) {
    if (block.records.empty() || dice.Below(6) == 0) {
        const auto number = static_cast<std::uint32_t>(block.records.size());
        block.records.push_back({number, {NewPacket(dice)}});
    } else if (kShape != Shape::kPackets && dice.Below(3) == 0) {
        Shuffle(block.records, dice);
    } else {
        ChangeRecord(block.records[dice.Below(block.records.size())], dice);
    }
}

std::string Change(std::string log, Dice& dice) {
    if (dice.Below(4) == 0) {
        Mutate(log, 64);
        return BytesOf(BlocksOf(log));
    }
    std::vector<Block> blocks = BlocksOf(log);
    if (blocks.empty()) {
        blocks.emplace_back();
    }
    if (kShape == Shape::kBlocks && dice.Below(6) == 0) {
        Shuffle(blocks, dice);
    } else {
        ChangeBlock(blocks[dice.Below(blocks.size())], dice);
    }
    return BytesOf(blocks);
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned int seed) {
    Dice dice(seed);
    if (dice.Below(8) == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::string input(reinterpret_cast<const char*>(data), size);
    if (size < LogCase::kPrefixBytes) {
        input.resize(LogCase::kPrefixBytes);
    }
    std::string prefix = input.substr(0, LogCase::kPrefixBytes);
    std::string log = input.substr(LogCase::kPrefixBytes);
    if (dice.Below(6) == 0) {
        prefix[dice.Below(prefix.size())] = static_cast<char>(dice.Below(256));
    } else {
        log = Change(std::move(log), dice);
    }
    return Deliver(prefix + log, data, size, maxSize);
}
