// Puts the records of a block back into the order of their sequence numbers. Several writers fill
// the trace buffer at once, so a block holds records a little out of order.
#ifndef ZYN_TRACEDATA_REORDERER_H
#define ZYN_TRACEDATA_REORDERER_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "TraceData/RecordSplitter.h"

// Unsigned and without wrap-around: after 4294967295 the records numbered 0, 1, ... come first.
template <>
struct std::greater<const TraceRecordReader*> {
    bool operator()(const TraceRecordReader* a, const TraceRecordReader* b) const noexcept {
        return a->sequenceNumber > b->sequenceNumber;
    }
};

template <typename T, typename Record>
concept RecordEmitter = requires(T helper, const Record& record) {
    helper.ProcessRecord(record);
};

// A bounded min-heap of at most Limit records: when one more arrives, the smallest is emitted
// first. Records that are more than Limit places out of order therefore stay out of order, and
// memory is bounded. Records with equal numbers leave in the order of their arrival.
//
// Most blocks need no heap, so it is built as late as possible:
//
//   kQueue  while numbers only rise the records held are a ring in order: push at the back, emit at
//           the front
//   kBag    a smaller number has come: while there is room the records are only collected, and
//           draining sorts them
//   kHeap   a record must be emitted while others still arrive
//
// Serves one block. ProcessFront passes on what the helper throws and keeps the record.
template <typename Helper, std::uint32_t Limit, typename Record = TraceRecordReader>
requires RecordEmitter<Helper, Record>
class ReOrderer {
  public:
    // Kept by the owner so that it is not cleared for each block.
    class Storage {
      public:
        Storage() noexcept {}  // NOLINT(modernize-use-equals-default): leaves the bytes as they are

      private:
        friend class ReOrderer;
        // By sequence number, then arrival; slot says where the record is.
        struct Key {
            std::uint64_t order;
            std::uint32_t slot;
            friend bool operator>(const Key& a, const Key& b) noexcept { return a.order > b.order; }
            friend bool operator<(const Key& a, const Key& b) noexcept { return a.order < b.order; }
        };
        std::array<Record, Limit> records_;
        std::array<Record, Limit> sorted_;
        std::array<Key, Limit> keys_;
    };

    ReOrderer(Storage& storage, Helper& helper) noexcept
        : records_(storage.records_),
          sorted_(storage.sorted_),
          keys_(storage.keys_),
          helper_(helper) {}

    // Takes a record, after emitting the front when Limit records are held.
    void Push(const Record& record) {
        if (held_ == Limit) [[unlikely]] {
            ProcessFront();
        }
        if (state_ == State::kHeap) [[unlikely]] {
            PushToHeap(record);
            return;
        }
        if (record.sequenceNumber < last_) {
            state_ = State::kBag;
        }
        last_ = record.sequenceNumber;
        records_[RingSlot(held_)] = record;
        ++held_;
    }

    // Takes records from next(Record&), which returns false when it has none, until
    // Limit are held. The same as Push for each, for a re-orderer that holds none yet.
    template <typename Next>
    void Fill(Next&& next) {
        std::uint32_t last = 0;
        std::uint32_t falls = 0;
        std::uint32_t count = 0;
        while (count < Limit && next(records_[count])) {
            const std::uint32_t number = records_[count].sequenceNumber;
            falls += number < last ? 1 : 0;
            last = number;
            ++count;
        }
        state_ = falls == 0 ? State::kQueue : State::kBag;
        held_ = count;
        last_ = last;
    }

    // Emits and removes the record with the smallest sequence number. At least one is held.
    void ProcessFront() {
        if (state_ == State::kQueue) {
            Emit(&records_[front_], 1);
            front_ = RingSlot(1);
            --held_;
            return;
        }
        if (state_ == State::kBag) {
            CollectKeys();
            std::make_heap(keys_.begin(), KeysEnd(), std::greater<>());
            state_ = State::kHeap;
        }
        Emit(&records_[keys_.front().slot], 1);
        std::pop_heap(keys_.begin(), KeysEnd(), std::greater<>());
        --held_;
    }

    [[nodiscard]] std::uint32_t Held() const noexcept { return held_; }

    // Emits all records held, in order.
    void Drain() {
        if (state_ == State::kQueue) {
            ForEachHeld(
                [this](const Record* records, std::uint32_t count) { Emit(records, count); });
        } else {
            Sort();
            Emit(sorted_.data(), held_);
        }
        held_ = 0;
    }

  private:
    enum class State : std::uint8_t { kQueue, kBag, kHeap };
    // The widest range of numbers that is put in order by counting.
    static constexpr std::uint32_t kCountable = 4 * Limit;
    static_assert(kCountable < UINT16_MAX);

    [[nodiscard]] std::uint32_t RingSlot(std::uint32_t place) const noexcept {
        const std::uint32_t slot = front_ + place;
        return slot < Limit ? slot : slot - Limit;
    }

    auto KeysEnd() noexcept { return keys_.begin() + static_cast<std::ptrdiff_t>(held_); }

    // Keys of the records held, in the order of their arrival, and behind them the free slots.
    void CollectKeys() noexcept {
        for (std::uint32_t i = 0; i < Limit; ++i) {
            const std::uint32_t slot = RingSlot(i);
            keys_[i] = {i < held_ ? Order(records_[slot].sequenceNumber, i) : 0, slot};
        }
        arrivals_ = held_;
    }

    // The one place where records leave, so that what the helper does with one is compiled into the
    // loop.
    [[gnu::noinline]] void Emit(const Record* records, std::uint32_t count) {
        for (const Record* const end = records + count; records != end; ++records) {
            helper_.ProcessRecord(*records);
        }
    }

    // Calls action(first record, count) for each of the two pieces that the ring may be in.
    template <typename Action>
    void ForEachHeld(Action&& action) {
        const std::uint32_t first = std::min(held_, Limit - front_);
        action(records_.data() + front_, first);
        action(records_.data(), held_ - first);
    }

    // Puts all records held into sorted_.
    void Sort() {
        if (state_ == State::kBag) {
            std::uint32_t lowest = UINT32_MAX;
            std::uint32_t highest = 0;
            ForEachHeld([&](const Record* records, std::uint32_t count) {
                for (const Record* const end = records + count; records != end; ++records) {
                    lowest = std::min(lowest, records->sequenceNumber);
                    highest = std::max(highest, records->sequenceNumber);
                }
            });
            if (highest - lowest < kCountable) {
                SortByCounting(lowest, highest);
                return;
            }
            CollectKeys();
        }
        std::sort(keys_.begin(), KeysEnd());
        for (std::uint32_t i = 0; i < held_; ++i) {
            sorted_[i] = records_[keys_[i].slot];
        }
    }

    // The numbers of a block mostly lie close together: counting them puts them in order in a few
    // steps per record, where comparing takes many and the processor guesses half of them wrong.
    void SortByCounting(std::uint32_t lowest, std::uint32_t highest) {
        // For the n-th number: first how many records have one before it, then where the next of
        // its own goes.
        std::array<std::uint16_t, kCountable + 1> places;
        const std::uint32_t numbers = highest - lowest + 1;
        std::fill_n(places.begin(), numbers + 1, std::uint16_t{0});
        ForEachHeld([&](const Record* records, std::uint32_t count) {
            for (const Record* const end = records + count; records != end; ++records) {
                ++places[records->sequenceNumber - lowest + 1];
            }
        });
        std::uint16_t before = 0;
        for (std::uint32_t number = 0; number < numbers; ++number) {
            before = static_cast<std::uint16_t>(before + places[number]);
            places[number] = before;
        }
        ForEachHeld([&](const Record* records, std::uint32_t count) {
            for (const Record* const end = records + count; records != end; ++records) {
                sorted_[places[records->sequenceNumber - lowest]++] = *records;
            }
        });
    }

    // Removing a key moves it behind the heap, so a free slot is always found there.
    void PushToHeap(const Record& record) noexcept {
        const std::uint32_t slot = keys_[held_].slot;
        records_[slot] = record;
        keys_[held_].order = Order(record.sequenceNumber, arrivals_);
        ++arrivals_;
        ++held_;
        std::push_heap(keys_.begin(), KeysEnd(), std::greater<>());
    }

    // A block of less than 4 GiB has fewer records than 32 bits count.
    static std::uint64_t Order(std::uint32_t sequenceNumber, std::uint32_t arrival) noexcept {
        return std::uint64_t{sequenceNumber} << 32U | arrival;
    }

    std::array<Record, Limit>& records_;
    std::array<Record, Limit>& sorted_;
    std::array<typename Storage::Key, Limit>& keys_;
    Helper& helper_;
    std::uint32_t front_ = 0;
    std::uint32_t held_ = 0;
    std::uint32_t last_ = 0;
    std::uint32_t arrivals_ = 0;
    State state_ = State::kQueue;
};

#endif
