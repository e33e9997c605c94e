// How the newest file of a log ends, judged by its block headers alone: a few bytes are read for
// each block, whatever its size. What lies within the blocks is for zynlog-verify to say.
#ifndef ZYN_ZYNDOCTOR_LOGEND_H
#define ZYN_ZYNDOCTOR_LOGEND_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

struct LogEnd {
    enum class Kind : std::uint8_t {
        kComplete,
        kUnfinished,  // the last block goes on past the end of the file
        kDamaged,     // no block header where one should be
        kZeros,       // the same, and only zero bytes follow
        kTooLong,     // not walked to its end
        kUnreadable,  // errno says why
    };
    Kind kind = Kind::kComplete;
    std::string file{};         // where the last block, or the damage, begins
    std::uint64_t offset = 0;   // in that file
    std::uint64_t missing = 0;  // bytes of the last block's data that are not there
};

// Where a walk ends as too long: a tenth of a second, about, when the file is cached.
inline constexpr std::size_t kMaxWalkedBlocks = 50'000;

// paths: the files of the log up to the one in question, in reading order; each has the header of a
// binary log. A block may go on in the next file, so a file that begins within one is read with
// those before it, eight at most.
[[nodiscard]] LogEnd FindLogEnd(std::span<const std::string> paths);

#endif
