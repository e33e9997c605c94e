#include "LogReading/BlockSearch.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "Support/LoadStore.h"
#include "TraceData/PacketLayout.h"
#include "TraceData/RecordSplitter.h"

namespace {

constexpr std::uint32_t kLongestRecordHeader = kLongestPacketHead + kRecordHeaderPayload;
constexpr std::uint32_t kShortestBlockHeader = 1 + kPacketLengthBytes + kBlockHeaderPayload;

struct Head {
    HeaderShape shape = HeaderShape::kNone;
    std::uint32_t bytes = 0;
};

// A packet's head whose payload has the given length.
inline Head ReadHead(std::span<const char> bytes, std::uint32_t payload) noexcept {
    if (bytes.empty()) {
        return {HeaderShape::kCut, 0};
    }
    const auto flags = static_cast<std::uint8_t>(bytes[0]);
    const std::uint32_t headBytes = PacketHeadBytes(flags);
    if (bytes.size() >= headBytes) [[likely]] {
        if (LoadPacketHead(bytes.data()).length != payload) {
            return {};
        }
        return {bytes.size() >= headBytes + payload ? HeaderShape::kWhole : HeaderShape::kCut,
                headBytes};
    }
    // As much of the length as is there. A length that is implied is the type's.
    if ((flags & kPacketLengthFlag) == 0) {
        const bool fits = kImpliedPacketLength[flags & kPacketTypeMask] == payload;
        return {fits ? HeaderShape::kCut : HeaderShape::kNone, headBytes};
    }
    const std::uint32_t lengthAt = headBytes - kPacketLengthBytes;
    for (std::uint32_t index = lengthAt; index < bytes.size(); ++index) {
        if (static_cast<std::uint8_t>(bytes[index]) !=
            (payload >> (8 * (index - lengthAt)) & 0xFF)) {
            return {};
        }
    }
    return {HeaderShape::kCut, headBytes};
}

// A record within its block.
struct RecordStep {
    HeaderShape shape = HeaderShape::kNone;
    std::uint64_t next = 0;  // where it ends
};

inline RecordStep StepOver(LogData& data, std::uint64_t position) {
    const std::span<const char> bytes = data.Peek(position, kLongestRecordHeader);
    const Head head = ReadHead(bytes, kRecordHeaderPayload);
    if (head.shape != HeaderShape::kWhole) {
        return {head.shape, 0};
    }
    const auto length = LoadLittleEndian<std::uint32_t>(bytes.data() + head.bytes + 4);
    return {HeaderShape::kWhole, position + head.bytes + kRecordHeaderPayload + length};
}

// A block without data has none, and that is well.
HeaderShape FirstRecordFits(LogData& data, std::uint64_t position, const BlockHeaderBytes& header) {
    const std::uint64_t begin = position + header.Bytes();
    if (header.block.dataSize == 0) {
        return HeaderShape::kWhole;
    }
    const RecordStep first = StepOver(data, begin);
    return first.shape == HeaderShape::kWhole && first.next > begin + header.block.dataSize
               ? HeaderShape::kNone
               : first.shape;
}

bool IsBelieved(LogData& data, std::uint64_t position, LogEnd end, StepBudget& budget) {
    const BlockHeaderBytes header = ReadBlockHeader(data.Peek(position, kLongestBlockHeader));
    if (header.shape != HeaderShape::kWhole) {
        return false;
    }
    const std::uint64_t begin = position + header.Bytes();
    const std::uint64_t behind = begin + header.block.dataSize;
    if (FirstRecordFits(data, position, header) != HeaderShape::kWhole || !data.Reaches(behind)) {
        return false;
    }
    if (data.Peek(behind, 1).empty() ? end != LogEnd::kFollowed
                                     : HeaderStandsAt(data, behind, end)) {
        return true;
    }
    return header.block.dataSize != 0 && RecordsFill(data, begin, header.block.dataSize, budget);
}

// The positions of a run of bytes at which a block header may begin, in their order: those of the
// length that a header has, behind its flags, or its flags and its id.
class Candidates {
  public:
    // Only what begins before `most`.
    Candidates(std::span<const char> bytes, std::size_t most) noexcept
        : bytes_(bytes.data(), bytes.size()), most_(most) {}

    // npos at the end.
    std::size_t Next() noexcept {
        while (true) {
            if (second_ != std::string_view::npos) {
                const std::size_t candidate = second_;
                second_ = std::string_view::npos;
                if (Fits(candidate, false)) {
                    return candidate;
                }
            }
            const std::size_t length = bytes_.find(std::string_view("\x28\0\0\0", 4), at_);
            if (length == std::string_view::npos) {
                return std::string_view::npos;
            }
            at_ = length + 1;
            second_ = length >= 1 ? length - 1 : std::string_view::npos;
            if (length >= 3 && Fits(length - 3, true)) {
                return length - 3;
            }
        }
    }

  private:
    [[nodiscard]] bool Fits(std::size_t candidate, bool withId) const noexcept {
        const auto flags = static_cast<std::uint8_t>(bytes_[candidate]);
        return candidate < most_ && (flags & kPacketLengthFlag) != 0 &&
               ((flags & kPacketIdFlag) != 0) == withId;
    }

    std::string_view bytes_;
    std::size_t most_;
    std::size_t at_ = 0;
    std::size_t second_ = std::string_view::npos;
};

}  // namespace

BlockHeaderBytes ReadBlockHeader(std::span<const char> bytes) noexcept {
    const Head head = ReadHead(bytes, kBlockHeaderPayload);
    BlockHeaderBytes header;
    header.shape = head.shape;
    header.headBytes = head.bytes;
    if (head.shape == HeaderShape::kWhole) {
        header.block.Load(bytes.data() + head.bytes);
    }
    return header;
}

bool RecordsFill(LogData& data, std::uint64_t position, std::uint32_t dataBytes,
                 StepBudget& budget) {
    const std::uint64_t end = position + dataBytes;
    const std::uint64_t limit = budget.Limit();
    std::uint64_t steps = 0;
    while (position < end && steps < limit) {
        ++steps;
        const RecordStep step = StepOver(data, position);
        if (step.shape != HeaderShape::kWhole) {
            break;
        }
        position = step.next;
    }
    budget.Use(steps);
    return position == end;
}

bool RecordsSoFar(LogData& data, std::uint64_t& known, std::uint64_t blockEnd) {
    while (known < blockEnd) {
        const RecordStep step = StepOver(data, known);
        if (step.shape != HeaderShape::kWhole) {
            return step.shape == HeaderShape::kCut;
        }
        if (step.next > blockEnd) {
            return false;
        }
        if (!data.Reaches(step.next)) {
            return true;
        }
        known = step.next;
    }
    return true;
}

bool HeaderStandsAt(LogData& data, std::uint64_t position, LogEnd end) {
    const Head head = ReadHead(data.Peek(position, kLongestBlockHeader), kBlockHeaderPayload);
    return head.shape == HeaderShape::kWhole ||
           (head.shape == HeaderShape::kCut && end != LogEnd::kFinal);
}

HeaderShape BlockBeginsAt(LogData& data, std::uint64_t position) {
    const BlockHeaderBytes header = ReadBlockHeader(data.Peek(position, kLongestBlockHeader));
    return header.shape == HeaderShape::kWhole ? FirstRecordFits(data, position, header)
                                               : header.shape;
}

std::optional<std::uint64_t> WholeBlockEnd(LogData& data, std::uint64_t position) {
    const BlockHeaderBytes header = ReadBlockHeader(data.Peek(position, kLongestBlockHeader));
    const std::uint64_t begin = position + header.Bytes();
    const std::uint64_t behind = begin + header.block.dataSize;
    StepBudget budget;
    if (header.shape != HeaderShape::kWhole || header.block.dataSize == 0 ||
        !data.Reaches(behind) || !RecordsFill(data, begin, header.block.dataSize, budget)) {
        return std::nullopt;
    }
    return behind;
}

std::optional<std::uint64_t> FindBlockHeader(LogData& data, std::uint64_t from, LogEnd end,
                                             StepBudget& budget) {
    // Of the bytes at hand the last ones may be the beginning of a head.
    constexpr std::size_t kOverlap = kLongestPacketHead - 1;
    while (data.View(from, kShortestBlockHeader) != nullptr) {
        const std::span<const char> bytes = data.Buffered(from);
        const std::size_t searched = bytes.size() - kOverlap;
        Candidates candidates(bytes, searched);
        for (std::size_t at = candidates.Next(); at != std::string_view::npos;
             at = candidates.Next()) {
            budget.Pass(from + at);
            if (IsBelieved(data, from + at, end, budget)) {
                return from + at;
            }
        }
        from += searched;
    }
    return std::nullopt;
}
