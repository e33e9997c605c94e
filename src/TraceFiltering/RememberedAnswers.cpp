#include "TraceFiltering/RememberedAnswers.h"

#include <algorithm>
#include <new>

void RememberedAnswers::Store(std::uint32_t module, std::uint32_t client, std::uint32_t label,
                              bool enabled) noexcept {
    if (!Fits(module, label) || !Reserve()) {
        return;
    }
    const Table& table = *table_.load(std::memory_order_relaxed);
    const std::uint64_t key = KeyOf(module, client, label);
    const Found found = table.Look(key);
    used_ += found.word == 0 ? 1 : 0;
    const auto answer = static_cast<std::uint64_t>(enabled ? Answer::kOn : Answer::kOff);
    table.slots[found.place].store(key | answer, std::memory_order_relaxed);
}

void RememberedAnswers::Forget(std::uint32_t module, std::uint32_t client,
                               std::size_t count) noexcept {
    if (used_ == 0 || module >= kMaxModules) {
        return;
    }
    const Table& table = *table_.load(std::memory_order_relaxed);
    const auto labels = static_cast<std::uint32_t>(std::min<std::size_t>(count, kMaxLabels));
    for (std::uint32_t label = 0; label < labels; ++label) {
        const std::uint64_t key = KeyOf(module, client, label);
        const Found found = table.Look(key);
        if (found.word != 0) {
            const auto unknown = static_cast<std::uint64_t>(Answer::kUnknown);
            table.slots[found.place].store(key | unknown, std::memory_order_relaxed);
        }
    }
}

void RememberedAnswers::Clear() noexcept {
    if (used_ != 0) {
        Empty(*table_.load(std::memory_order_relaxed));
        used_ = 0;
    }
}

bool RememberedAnswers::Reserve() noexcept {
    const Table* table = table_.load(std::memory_order_relaxed);
    if (table != nullptr && used_ < table->Size() / 2) {
        return true;
    }
    if (table != nullptr && table->bits == kMostBits) {
        Clear();
        return true;
    }
    return Grow();
}

bool RememberedAnswers::Grow() noexcept {
    const Table* const old = table_.load(std::memory_order_relaxed);
    const unsigned int bits = old == nullptr ? kLeastBits : old->bits + 1;
    Table& grown = tables_.at(bits - kLeastBits);
    grown.bits = bits;
    grown.slots.reset(new (std::nothrow) Slot[grown.Size()]);
    if (grown.slots == nullptr) {
        return false;
    }
    for (std::size_t i = 0; old != nullptr && i < old->Size(); ++i) {
        const std::uint64_t word = old->slots[i].load(std::memory_order_relaxed);
        if (word != 0) {
            grown.slots[grown.Look(word & ~kAnswerMask).place].store(word,
                                                                     std::memory_order_relaxed);
        }
    }
    table_.store(&grown, std::memory_order_release);
    // A reader that still looks at the old table must find nothing there that is forgotten later.
    if (old != nullptr) {
        Empty(*old);
    }
    return true;
}

void RememberedAnswers::Empty(const Table& table) noexcept {
    for (std::size_t i = 0; i < table.Size(); ++i) {
        table.slots[i].store(0, std::memory_order_relaxed);
    }
}
