// One record as conditions and output forms see it.
#ifndef ZYN_ZYNLOGCAT_TRACERECORD_H
#define ZYN_ZYNLOGCAT_TRACERECORD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "TraceData/RecordDecoder.h"

// Where the bytes of a block's data lie: from `begin` of the data on, at `offset` of a file.
struct BlockPiece {
    std::uint64_t begin = 0;
    std::uint64_t offset = 0;
    std::string_view file{};  // as it was opened
};

// What the records of a block have in common. The views hold for as long as the block does.
struct BlockOrigin {
    std::string_view host{};   // up to its first NUL; kReadSlack bytes behind it are readable
    std::uint32_t writer = 0;  // process
    std::uint64_t number = 0;  // identifies it within a run
    std::span<const BlockPiece> pieces{};  // in order; at least one

    // The piece that has a byte of the data.
    [[nodiscard]] const BlockPiece& PieceAt(std::uint64_t offset) const noexcept {
        std::size_t i = pieces.size() - 1;
        while (i != 0 && pieces[i].begin > offset) {
            --i;
        }
        return pieces[i];
    }
};

// A view: valid until the next record is read. Milliseconds are since 1970-01-01 UTC; those over
// 999 in a packet carry.
struct TraceRecord {
    const DecodedRecord* decoded = nullptr;
    const BlockOrigin* block = nullptr;
    std::uint32_t offsetInBlock = 0;
    std::uint32_t sequence = 0;
    std::string_view data{};  // its packets
    // The bytes of its message packets one after another; of a control packet its text.
    std::string_view message{};
    // Its own time, else that of the record before it in the block; empty when there is none.
    std::optional<std::uint64_t> time{};

    [[nodiscard]] bool HasMessage() const noexcept {
        return decoded->Has(DecodedRecord::kMessage) || decoded->Has(DecodedRecord::kControl);
    }
    // Its own time, for a record that has one.
    [[nodiscard]] std::uint64_t OwnTime() const noexcept {
        return std::uint64_t{decoded->values.seconds} * 1000 + decoded->values.milliseconds;
    }
};

#endif
