#include "zynverify/SequenceTracker.h"

#include <algorithm>
#include <limits>

void SequenceTracker::Finish() {
    DropPending();
    if (started_) {
        LetGoOfAll();
        started_ = false;
    }
}

bool SequenceTracker::AddOutOfWindow(std::uint32_t number, const BlockPlace& block) {
    if (!started_) {
        Start(number);
        return false;
    }
    if (number - base_ >= kWindow && number - highest_ <= kNear) {
        SlideTo(number);
    }
    if (number - base_ < kWindow) {
        DropPending();
        return Mark(number, block);
    }
    if (hasPending_ && Near(number, pending_)) {
        hasPending_ = false;
        Jump(pending_, pendingBlock_);
        return Add(number, block);
    }
    DropPending();
    hasPending_ = true;
    pending_ = number;
    pendingBlock_ = block;
    return false;
}

// A quarter of the window lies before the number: the first one to come need not be the lowest.
void SequenceTracker::Start(std::uint32_t number) {
    seen_.fill(0);
    skips_.clear();
    base_ = (number - kWindow / 4) / kWordBits * kWordBits;
    lowest_ = highest_ = number;
    Word(number) |= std::uint64_t{1} << number % kWordBits;
    started_ = true;
}

void SequenceTracker::Jump(std::uint32_t number, const BlockPlace& block) {
    LetGoOfAll();
    if (number > highest_) {
        listener_.OnGap(highest_ + 1, number - highest_ - 1, block);
    } else {
        listener_.OnRestart(highest_, number, block);
    }
    Start(number);
}

void SequenceTracker::NoteSkip(const BlockPlace& block) {
    // An unknown place says that many gaps are open; those already remembered keep theirs.
    const bool room = skips_.size() < kMostSkips;
    if (room || skips_.back().block.number != 0) {
        if (!room) {
            skips_.pop_back();
        }
        skips_.push_back({highest_ + 1, room ? block : BlockPlace{}});
    }
}

void SequenceTracker::SlideTo(std::uint32_t number) {
    while (number - base_ >= kWindow) {
        LetGoOfWord(base_);
        base_ += kWordBits;
    }
}

void SequenceTracker::LetGoOfWord(std::uint32_t begin) {
    std::uint64_t& word = Word(begin);
    if (word != std::numeric_limits<std::uint64_t>::max()) {
        for (std::uint32_t bit = 0; bit < kWordBits; ++bit) {
            const std::uint32_t number = begin + bit;
            const bool inside = !Before(number, lowest_) && !Before(highest_, number);
            if (inside && (word >> bit & 1U) == 0) {
                AddMissing(number);
            }
        }
    }
    word = 0;
}

void SequenceTracker::LetGoOfAll() {
    for (; !Before(highest_, base_); base_ += kWordBits) {
        LetGoOfWord(base_);
    }
    ReportGap();
}

void SequenceTracker::AddMissing(std::uint32_t number) {
    if (gapCount_ != 0 && number == gapFirst_ + gapCount_) {
        ++gapCount_;
        return;
    }
    ReportGap();
    gapFirst_ = number;
    gapCount_ = 1;
}

void SequenceTracker::ReportGap() {
    if (gapCount_ == 0) {
        return;
    }
    while (skips_.size() > 1 && !Before(gapFirst_, skips_[1].first)) {
        skips_.pop_front();
    }
    const bool known = !skips_.empty() && !Before(gapFirst_, skips_.front().first);
    const std::uint32_t count = gapCount_;
    gapCount_ = 0;
    listener_.OnGap(gapFirst_, count, known ? skips_.front().block : BlockPlace{});
}

void SequenceTracker::DropPending() {
    if (hasPending_) {
        hasPending_ = false;
        listener_.OnStray(pending_, pendingBlock_);
    }
}
