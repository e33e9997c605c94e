// Which sequence numbers of a log have been seen: finds missing and repeated ones, in memory that
// does not grow with the log.
#ifndef ZYN_ZYNVERIFY_SEQUENCETRACKER_H
#define ZYN_ZYNVERIFY_SEQUENCETRACKER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>

// The block in which a number came.
struct BlockPlace {
    std::uint64_t number = 0;    // counted from 1 over the log; 0: not known
    std::uint64_t position = 0;  // of its header in the stream of the log's files
};

// Receives what a SequenceTracker finds. block: what Add was given.
class SequenceListener {
  public:
    virtual ~SequenceListener() = default;
    // count numbers from first on are missing, and the number behind them came with that block;
    // its number is 0 when too many gaps were open at once to remember it.
    virtual void OnGap(std::uint32_t first, std::uint32_t count, const BlockPlace& block) = 0;
    // The numbering began anew, as after a restart of the service: no gap.
    virtual void OnRestart(std::uint32_t last, std::uint32_t first, const BlockPlace& block) = 0;
    // One number by itself, far from all around it.
    virtual void OnStray(std::uint32_t number, const BlockPlace& block) = 0;
};

// Remembers, one bit each, the kWindow numbers around the highest one: a number may come that late
// and is not yet reported as missing. A number that leaves the window unseen is part of a gap. A
// number outside the window counts as the begin of a far gap, or of a new numbering, once a second
// one near it follows; else it is a stray. Counts on from 4294967295 to 0. About 16 KiB, and up to
// 96 KiB for the places of open gaps. One thread; passes on what the listener throws.
class SequenceTracker {
  public:
    static constexpr std::uint32_t kWindow = std::uint32_t{1} << 17U;

    explicit SequenceTracker(SequenceListener& listener) noexcept : listener_(listener) {}

    // Returns whether the number has been seen before, as far as is remembered.
    bool Add(std::uint32_t number, const BlockPlace& block) {
        if (number - base_ >= kWindow || !started_ || hasPending_) [[unlikely]] {
            return AddOutOfWindow(number, block);
        }
        return Mark(number, block);
    }

    // Reports all that is still open. No number may follow.
    void Finish();

  private:
    static constexpr std::uint32_t kNear = kWindow / 2;
    static constexpr std::uint32_t kWordBits = 64;
    static constexpr std::size_t kWords = kWindow / kWordBits;
    static constexpr std::size_t kMostSkips = 4096;

    // When the highest number rose by more than one: what it rose over, and where.
    struct Skip {
        std::uint32_t first;
        BlockPlace block;
    };

    static bool Before(std::uint32_t a, std::uint32_t b) noexcept {
        return static_cast<std::int32_t>(a - b) < 0;
    }
    static bool Near(std::uint32_t a, std::uint32_t b) noexcept {
        return a - b <= kNear || b - a <= kNear;
    }
    std::uint64_t& Word(std::uint32_t number) noexcept {
        return seen_[number / kWordBits % kWords];
    }

    bool Mark(std::uint32_t number, const BlockPlace& block) {
        std::uint64_t& word = Word(number);
        const std::uint64_t bit = std::uint64_t{1} << number % kWordBits;
        if ((word & bit) != 0) {
            return true;
        }
        word |= bit;
        if (number == highest_ + 1) [[likely]] {
            highest_ = number;
        } else if (Before(highest_, number)) {
            NoteSkip(block);
            highest_ = number;
        } else if (Before(number, lowest_)) {
            lowest_ = number;
        }
        return false;
    }

    bool AddOutOfWindow(std::uint32_t number, const BlockPlace& block);
    void Start(std::uint32_t number);
    void Jump(std::uint32_t number, const BlockPlace& block);
    void NoteSkip(const BlockPlace& block);
    void SlideTo(std::uint32_t number);
    void LetGoOfWord(std::uint32_t begin);
    void LetGoOfAll();
    void AddMissing(std::uint32_t number);
    void ReportGap();
    void DropPending();

    SequenceListener& listener_;
    std::array<std::uint64_t, kWords> seen_{};
    std::deque<Skip> skips_;
    // The window begins here, at a multiple of kWordBits.
    std::uint32_t base_ = 0;
    std::uint32_t lowest_ = 0;
    std::uint32_t highest_ = 0;
    // The run of missing numbers that is being collected.
    std::uint32_t gapFirst_ = 0;
    std::uint32_t gapCount_ = 0;
    // A number outside the window, of which it is not clear yet what it means.
    std::uint32_t pending_ = 0;
    BlockPlace pendingBlock_;
    bool hasPending_ = false;
    bool started_ = false;
};

#endif
