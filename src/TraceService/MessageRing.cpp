#include "TraceService/MessageRing.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "Support/ValidationException.h"

namespace {

constexpr std::uint32_t kReadOffset = 0;
constexpr std::uint32_t kWriteOffset = 4;
constexpr std::uint32_t kCapacityOffset = 8;

// The header lies at the start of a page, so its words are aligned.
template <typename Word>
std::atomic_ref<Word> AtomicAt(char* address) {
    return std::atomic_ref<Word>(*reinterpret_cast<Word*>(address));
}

}  // namespace

MessageRing::MessageRing(SharedMemory& region, std::uint32_t capacity)
    : region_(region), data_(region.Address() + kHeaderBytes), capacity_(capacity) {
    region.Require(RegionBytes(capacity));
}

void MessageRing::Initialise() noexcept {
    if (!region_.IsBacked()) {
        return;
    }
    AtomicAt<Positions>(region_.Address())
        .store({.read = 0, .write = 0}, std::memory_order_release);
    StoreWord(kCapacityOffset, capacity_);
}

MessageRing::Positions MessageRing::Snapshot() const noexcept {
    static_assert(std::atomic_ref<Positions>::is_always_lock_free);
    return AtomicAt<Positions>(region_.Address()).load(std::memory_order_acquire);
}

void MessageRing::StoreWord(std::uint32_t offset, std::uint32_t value) noexcept {
    AtomicAt<std::uint32_t>(region_.Address() + offset).store(value, std::memory_order_release);
}

bool MessageRing::HoldsBytes() const noexcept {
    if (!region_.IsBacked()) {
        return false;
    }
    const Positions positions = Snapshot();
    return positions.read != positions.write;
}

void MessageRing::Append(std::string_view frame) noexcept {
    if (!region_.IsBacked()) {
        return;
    }
    const auto [read, write] = Snapshot();
    if (!IsInside(read) || !IsInside(write)) {
        return;
    }
    const std::size_t count = frame.size();
    // read <= write:  [ free | used | tail ]     else:  [ used | free | used ]
    const std::uint32_t tail = capacity_ - write;
    const std::uint32_t room = (read <= write ? read + tail : read - write) - 1;
    if (count > room) {
        return;
    }
    const std::size_t first = std::min<std::size_t>(count, tail);
    std::memcpy(data_ + write, frame.data(), first);
    std::memcpy(data_, frame.data() + first, count - first);
    const std::size_t end = write + count;
    StoreWord(kWriteOffset, static_cast<std::uint32_t>(end >= capacity_ ? end - capacity_ : end));
}

MessageRing::Reader::Reader(MessageRing& ring) : ring_(ring) {
    const auto [read, write] = ring.Snapshot();
    const bool sane = ring.IsInside(read) && ring.IsInside(write);
    if (!sane) {
        // The write position is the writer's; it is touched only when it cannot be met.
        if (ring.IsInside(write)) {
            ring.StoreWord(kReadOffset, write);
        } else {
            ring.Initialise();
        }
    }
    ZYN_CHECK_LOGIC(sane, "Insufficent data to be read");
    read_ = read;
    available_ = write >= read ? write - read : write + ring.capacity_ - read;
}

void MessageRing::Reader::Read(char* destination, std::uint32_t count) {
    ZYN_CHECK_LOGIC(count <= available_, "Insufficent data to be read");
    const std::uint32_t first = std::min(count, ring_.capacity_ - read_);
    std::memcpy(destination, ring_.data_ + read_, first);
    std::memcpy(destination + first, ring_.data_, count - first);
    Advance(count);
}

void MessageRing::Reader::Skip(std::uint32_t count) {
    ZYN_CHECK_LOGIC(count <= available_, "Insufficent data to be read");
    Advance(count);
}

void MessageRing::Reader::Advance(std::uint32_t count) noexcept {
    const std::uint32_t end = read_ + count;
    read_ = end >= ring_.capacity_ ? end - ring_.capacity_ : end;
    available_ -= count;
    ring_.StoreWord(kReadOffset, read_);
}
