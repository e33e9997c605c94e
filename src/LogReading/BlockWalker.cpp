#include "LogReading/BlockWalker.h"

#include <algorithm>

#include "TraceData/PacketLayout.h"

class BlockWalker::Holding {
  public:
    Holding(LogData& data, std::uint64_t position) : data_(data) { data_.Hold(position); }
    Holding(const Holding&) = delete;
    Holding& operator=(const Holding&) = delete;
    ~Holding() { data_.Release(); }

  private:
    LogData& data_;
};

BlockWalker::BlockWalker(LogData& data, LogEnd end, std::uint64_t position)
    : data_(data), end_(end), position_(position) {
    budget_.Pass(position);
}

std::span<const char> BlockWalker::HeaderAt(std::uint64_t position, bool withData) {
    if (!withData) {
        return data_.Peek(position, kLongestBlockHeader);
    }
    if (data_.View(position, kLongestBlockHeader) == nullptr) {
        return data_.Buffered(position);
    }
    return data_.Buffered(position).first(kLongestBlockHeader);
}

BlockWalker::Step BlockWalker::Walk(bool withData) {
    if (data_.Empty()) {
        return Step::kEnd;
    }
    // Streams are read through in any case, and once.
    withData = withData || data_.HasStreams();
    lost_ = false;
    const std::span<const char> bytes = HeaderAt(position_, withData);
    if (bytes.empty()) {
        return Step::kEnd;
    }
    const BlockHeaderBytes header = ReadBlockHeader(bytes);
    switch (header.shape) {
        case HeaderShape::kWhole:
            return WalkBlock(header, withData);
        case HeaderShape::kCut:
            return WalkCutHeader();
        case HeaderShape::kNone:
            // Too short to distinguish it from one that is cut, unless more of the log may come.
            if (end_ != LogEnd::kFollowed &&
                bytes.size() < PacketHeadBytes(static_cast<std::uint8_t>(bytes.front()))) {
                return WalkCutHeader();
            }
            break;
    }
    return WalkDamage(BlockDamage::kBlockHeader, BlockDamage::kBlockHeader, std::nullopt);
}

BlockWalker::Step BlockWalker::WalkCutHeader() {
    return end_ == LogEnd::kFinal
               ? WalkDamage(BlockDamage::kBlockHeader, BlockDamage::kBlockCut, std::nullopt)
               : Step::kUnfinished;
}

BlockWalker::Step BlockWalker::WalkBlock(const BlockHeaderBytes& header, bool withData) {
    const std::uint64_t begin = position_ + header.Bytes();
    if (mendedEnd_) {
        const auto dataBytes = static_cast<std::uint32_t>(*mendedEnd_ - begin);
        return HandOut(header, dataBytes,
                       data_.View(position_, std::uint64_t{header.Bytes()} + dataBytes));
    }
    const std::uint64_t behind = begin + header.block.dataSize;
    const std::uint64_t bytes = behind - position_;
    if (withData ? data_.View(position_, bytes) == nullptr : !data_.Reaches(behind)) {
        return WalkUnfinished(header);
    }
    if (!LengthHolds(header)) {
        const Holding holding(data_, position_);
        const std::optional<std::uint64_t> next = Find(position_ + 1);
        if (next && *next < behind) {
            if (*next < begin) {
                return Pass(BlockDamage::kBlockHeader, *next, header.block.dataSize);
            }
            mendedEnd_ = *next;
            return Pass(BlockDamage::kBlockHeader, position_, header.block.dataSize);
        }
    }
    return HandOut(header, header.block.dataSize,
                   withData ? data_.View(position_, bytes) : nullptr);
}

BlockWalker::Step BlockWalker::HandOut(const BlockHeaderBytes& header, std::uint32_t dataBytes,
                                       const char* bytes) {
    block_.position = position_;
    block_.dataPosition = position_ + header.Bytes();
    block_.dataBytes = dataBytes;
    block_.processId = header.block.processId;
    block_.hostBytes = header.block.hostName;
    block_.data = bytes == nullptr ? nullptr : bytes + header.Bytes();
    position_ = block_.End();
    mendedEnd_.reset();
    budget_.Pass(position_);
    return Step::kBlock;
}

// Of a block that the data has all of. What is in memory is checked first: the next file may not be
// readable, a pipe not have gone on yet.
bool BlockWalker::LengthHolds(const BlockHeaderBytes& header) {
    const std::uint64_t begin = position_ + header.Bytes();
    const std::uint64_t behind = begin + header.block.dataSize;
    const std::span<const char> near = data_.Buffered(behind);
    if (near.size() >= kLongestBlockHeader) {
        if (ReadBlockHeader(near.first(kLongestBlockHeader)).shape == HeaderShape::kWhole)
            [[likely]] {
            return true;
        }
        return RecordsFill(data_, begin, header.block.dataSize, budget_);
    }
    const auto leadsOn = [&] {
        return data_.EndsAt(behind) || HeaderStandsAt(data_, behind, end_);
    };
    if (data_.Buffered(position_).size() >= header.Bytes() + std::uint64_t{header.block.dataSize}) {
        return RecordsFill(data_, begin, header.block.dataSize, budget_) || leadsOn();
    }
    return leadsOn() || RecordsFill(data_, begin, header.block.dataSize, budget_);
}

// A header whose length is beyond all data.
BlockWalker::Step BlockWalker::WalkUnfinished(const BlockHeaderBytes& header) {
    const std::uint64_t begin = position_ + header.Bytes();
    if (end_ == LogEnd::kFinal) {
        return WalkDamage(BlockDamage::kBlockHeader, BlockDamage::kBlockCut, header.block.dataSize);
    }
    if (unfinished_ != position_ || recordsTo_ < begin) {
        unfinished_ = position_;
        recordsTo_ = begin;
    }
    // While its records follow each other it is being written.
    const std::uint64_t behind = begin + header.block.dataSize;
    if (RecordsSoFar(data_, recordsTo_, behind)) {
        return Step::kUnfinished;
    }
    // What had been written of it may have been written anew.
    recordsTo_ = begin;
    if (RecordsSoFar(data_, recordsTo_, behind)) {
        return Step::kUnfinished;
    }
    return WalkDamage(BlockDamage::kBlockHeader, BlockDamage::kBlockHeader, header.block.dataSize);
}

// Looks for the next header behind the broken one at position_.
BlockWalker::Step BlockWalker::WalkDamage(BlockDamage found, BlockDamage atEnd,
                                          std::optional<std::uint32_t> dataBytes) {
    const Holding holding(data_, position_);
    const std::optional<std::uint64_t> next = Find(position_ + 1);
    if (next) {
        return Pass(found, *next, dataBytes);
    }
    lost_ = end_ == LogEnd::kFollowed;
    return lost_ ? Step::kUnfinished : Pass(atEnd, data_.Size(), dataBytes);
}

BlockWalker::Step BlockWalker::Pass(BlockDamage damage, std::uint64_t next,
                                    std::optional<std::uint32_t> dataBytes) {
    damage_ = {damage, position_, next - position_, dataBytes};
    position_ = next;
    budget_.Pass(position_);
    return Step::kDamage;
}

std::optional<std::uint64_t> BlockWalker::Find(std::uint64_t from) {
    if (from < searchedFrom_ || from > searchedTo_) {
        const std::optional<std::uint64_t> found = FindBlockHeader(data_, from, end_, budget_);
        searchFound_ = found.has_value();
        searchedFrom_ = from;
        // What was not found may come, where the log goes on.
        searchedTo_ = found ? *found : end_ == LogEnd::kFollowed ? 0 : std::max(from, data_.Size());
    }
    return searchFound_ ? std::optional(searchedTo_) : std::nullopt;
}
