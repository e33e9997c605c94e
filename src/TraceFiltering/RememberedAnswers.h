// The answers to queries that the status caches have no place for, found again without a lock.
//
// An open-addressing hash table whose slots are single 64-bit words that hold a whole combination
// and its answer, so that a slot is either seen as it was or as it is. Nothing is ever taken out of
// a chain but all at once: a forgotten answer leaves its combination behind. The filter manager
// writes under its outer lock.
#ifndef ZYN_TRACEFILTERING_REMEMBEREDANSWERS_H
#define ZYN_TRACEFILTERING_REMEMBEREDANSWERS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

class RememberedAnswers {
  public:
    // At most this many combinations; one more, and all are forgotten. Together with the smaller
    // tables it has outgrown, which a reader may still look at, an object takes less than 8 MiB,
    // and a hundred bytes before the first answer.
    static constexpr std::size_t kMaxCombinations = std::size_t{1} << 18U;
    // Combinations of keys that do not fit into a slot are not remembered.
    static constexpr std::uint32_t kMaxModules = 1U << 16U;
    static constexpr std::uint32_t kMaxLabels = 1U << 14U;

    enum class Answer : std::uint8_t { kUnknown = 1, kOff = 2, kOn = 3 };

    // Any thread, at any time.
    [[nodiscard]] Answer Find(std::uint32_t module, std::uint32_t client,
                              std::uint32_t label) const noexcept {
        const Table* table = table_.load(std::memory_order_acquire);
        if (table == nullptr || !Fits(module, label)) {
            return Answer::kUnknown;
        }
        return AnswerIn(table->Look(KeyOf(module, client, label)).word);
    }

    // One thread at a time, as for the two below. Out of memory, nothing is remembered.
    void Store(std::uint32_t module, std::uint32_t client, std::uint32_t label,
               bool enabled) noexcept;
    // The answers for a client within a module and the labels below count.
    void Forget(std::uint32_t module, std::uint32_t client, std::size_t count) noexcept;
    void Clear() noexcept;

  private:
    static constexpr unsigned int kLeastBits = 10;
    static constexpr unsigned int kMostBits = 19;
    static constexpr std::uint64_t kAnswerMask = 3;

    // From the lowest bit: answer 2 bits, label 14, module 16, client 32. 0 is an empty slot.
    using Slot = std::atomic<std::uint64_t>;
    // Slot::is_always_lock_free is false with clang++ for 32-bit x86, as it has unaligned words in
    // mind; these are aligned.
    static_assert(alignof(Slot) == 8 && std::atomic_ref<std::uint64_t>::is_always_lock_free);

    // A slot, and what it held when it was looked at: it may hold another key's by now.
    struct Found {
        std::size_t place;
        std::uint64_t word;
    };

    struct Table {
        unsigned int bits = 0;
        std::unique_ptr<Slot[]> slots;

        [[nodiscard]] std::size_t Size() const noexcept { return std::size_t{1} << bits; }
        // The key's slot, or the empty one where it belongs: at least half of the slots are empty.
        [[nodiscard]] Found Look(std::uint64_t key) const noexcept {
            for (std::size_t place = Start(key, bits);; place = (place + 1) & (Size() - 1)) {
                const std::uint64_t word = slots[place].load(std::memory_order_relaxed);
                if (word == 0 || (word & ~kAnswerMask) == key) {
                    return {place, word};
                }
            }
        }
    };

    [[nodiscard]] static bool Fits(std::uint32_t module, std::uint32_t label) noexcept {
        return module < kMaxModules && label < kMaxLabels;
    }
    [[nodiscard]] static std::uint64_t KeyOf(std::uint32_t module, std::uint32_t client,
                                             std::uint32_t label) noexcept {
        return std::uint64_t{client} << 32U | std::uint64_t{module} << 16U |
               std::uint64_t{label} << 2U;
    }
    // The keys are a lattice, which one multiplication would map to another.
    [[nodiscard]] static std::size_t Start(std::uint64_t key, unsigned int bits) noexcept {
        key *= 0x9E3779B97F4A7C15U;
        key ^= key >> 32U;
        key *= 0xD6E8FEB86659FD93U;
        return static_cast<std::size_t>(key >> (64U - bits));
    }
    [[nodiscard]] static Answer AnswerIn(std::uint64_t word) noexcept {
        return word == 0 ? Answer::kUnknown : static_cast<Answer>(word & kAnswerMask);
    }

    // Makes room for one more. False when there is no memory for it.
    bool Reserve() noexcept;
    bool Grow() noexcept;
    static void Empty(const Table& table) noexcept;

    // The last of those that have slots; null while there are none.
    std::atomic<const Table*> table_{nullptr};
    std::array<Table, kMostBits - kLeastBits + 1> tables_;
    std::size_t used_ = 0;  // slots of table_
};

#endif
