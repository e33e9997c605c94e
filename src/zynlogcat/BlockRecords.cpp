#include "zynlogcat/BlockRecords.h"

#include <algorithm>
#include <span>
#include <string_view>

void BlockOrigins::Set(const FoundBlock& block, const LogData& data, std::uint64_t number) {
    std::copy(block.hostBytes.begin(), block.hostBytes.end(), host_.begin());
    origin_.host = std::string_view(host_.data(), block.Host().size());
    origin_.writer = block.processId;
    origin_.number = number;
    // Nearly every block lies in one file. Where the pieces behind it begin may not be known yet.
    pieces_.clear();
    const std::span<const LogData::Piece> all = data.Pieces();
    const std::uint64_t lastByte = std::max(block.End(), block.dataPosition + 1) - 1;
    const std::size_t last = data.PieceOf(lastByte);
    for (std::size_t i = data.PieceOf(block.dataPosition); i <= last; ++i) {
        const LogData::Piece& piece = all[i];
        const std::uint64_t begin = std::max(piece.begin, block.dataPosition);
        pieces_.push_back(
            {begin - block.dataPosition, piece.from + (begin - piece.begin), piece.path});
    }
    origin_.pieces = pieces_;
}
