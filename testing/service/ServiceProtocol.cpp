// Records, frames and ring of the service's side; see the header.

#include "testing/service/ServiceProtocol.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <initializer_list>
#include <iterator>

namespace standin {

namespace {

constexpr std::size_t kReadPositionOffset = 0;
constexpr std::size_t kWritePositionOffset = 4;
constexpr std::size_t kCapacityOffset = 8;

// Senders that keep overtaking the reader are met again at the next poll.
constexpr int kDrainAttempts = 8;

static_assert(std::endian::native == std::endian::little, "the regions hold little-endian words");

std::uint32_t LoadWord(std::span<const std::uint8_t> bytes, std::size_t offset) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

Bytes WordRecord(std::initializer_list<std::uint32_t> words) {
    Bytes record(words.size() * sizeof(std::uint32_t));
    std::memcpy(record.data(), words.begin(), record.size());
    return record;
}

std::atomic_ref<std::uint32_t> HeaderWord(std::uint8_t* region, std::size_t offset) {
    return std::atomic_ref<std::uint32_t>(*reinterpret_cast<std::uint32_t*>(region + offset));
}

std::atomic_ref<RingPositions> HeaderPositions(std::uint8_t* region) {
    static_assert(std::atomic_ref<RingPositions>::is_always_lock_free);
    return std::atomic_ref<RingPositions>(*reinterpret_cast<RingPositions*>(region));
}

std::atomic_ref<std::uint8_t> DataByte(std::uint8_t* region, std::uint32_t position) {
    return std::atomic_ref<std::uint8_t>(region[kRingHeaderBytes + position]);
}

}  // namespace

std::string ChangeName(std::uint32_t code) {
    switch (code) {
        case kChangeReload:
            return "reload";
        case kChangePause:
            return "pause";
        case kChangeResume:
            return "resume";
        case kChangePreservationOn:
            return "preservation on";
        case kChangePreservationOff:
            return "preservation off";
        default:
            return "change " + std::to_string(code);
    }
}

std::optional<Message> DecodeMessage(std::span<const std::uint8_t> payload) {
    constexpr std::size_t kHeaderBytes = 8;
    constexpr std::size_t kArgumentEnd = 12;
    if (payload.size() < kHeaderBytes) {
        return std::nullopt;
    }
    Message message{
        .processId = LoadWord(payload, 0), .type = LoadWord(payload, 4), .argument = {}};
    if (payload.size() >= kArgumentEnd) {
        message.argument = LoadWord(payload, kHeaderBytes);
    }
    return message;
}

Bytes RegistrationRecord(std::uint32_t processId, std::uint32_t action) {
    return WordRecord({processId, kTypeRegistration, action});
}

Bytes ChangeRecord(std::uint32_t processId, std::uint32_t code) {
    return WordRecord({processId, kTypeConfigurationChange, code, 0});
}

Bytes HeaderRecord(std::uint32_t processId, std::uint32_t type) {
    return WordRecord({processId, type});
}

std::uint32_t ImpliedLength(std::uint8_t kind) {
    constexpr std::array<std::uint32_t, kFirstKindWithLength> kLengths = {0, 1, 1, 2, 4, 8, 0, 0};
    return kind < kLengths.size() ? kLengths[kind] : 0;
}

Bytes Frame(std::uint8_t header, std::span<const std::uint8_t> payload) {
    constexpr std::size_t kLongestPrefixBytes = 7;
    Bytes frame;
    frame.reserve(kLongestPrefixBytes + payload.size());
    frame.push_back(header);
    if ((header & kIdBit) != 0) {
        // Any id does: no reader looks at it.
        frame.push_back(0x34);
        frame.push_back(0x12);
    }
    if ((header & kKindMask) >= kFirstKindWithLength) {
        const auto length = static_cast<std::uint32_t>(payload.size());
        for (unsigned shift = 0; shift < 32; shift += 8) {
            frame.push_back(static_cast<std::uint8_t>(length >> shift));
        }
    }
    std::copy(payload.begin(), payload.end(), std::back_inserter(frame));
    return frame;
}

Bytes MessageFrame(std::span<const std::uint8_t> payload) {
    return Frame(kMessageFrameHeader, payload);
}

FrameScan ScanFrames(std::span<const std::uint8_t> bytes) {
    FrameScan scan;
    std::size_t position = 0;
    while (position < bytes.size()) {
        const std::uint8_t header = bytes[position];
        const auto kind = static_cast<std::uint8_t>(header & kKindMask);
        const std::size_t idBytes = (header & kIdBit) != 0 ? sizeof(std::uint16_t) : 0;
        const bool hasLength = kind >= kFirstKindWithLength;
        const std::size_t prefixBytes = 1 + idBytes + (hasLength ? sizeof(std::uint32_t) : 0);
        if (prefixBytes > bytes.size() - position) {
            break;
        }
        const std::uint32_t length =
            hasLength ? LoadWord(bytes, position + 1 + idBytes) : ImpliedLength(kind);
        if (length > bytes.size() - position - prefixBytes) {
            break;
        }
        const auto payload = bytes.subspan(position + prefixBytes, length);
        scan.frames.push_back({.header = header, .payload = Bytes(payload.begin(), payload.end())});
        position += prefixBytes + length;
    }
    scan.trailingBytes = bytes.size() - position;
    return scan;
}

void Ring::Initialise() const {
    HeaderWord(region_, kReadPositionOffset).store(0);
    HeaderWord(region_, kWritePositionOffset).store(0);
    HeaderWord(region_, kCapacityOffset).store(kMessageRingCapacity);
}

RingPositions Ring::Positions() const {
    return HeaderPositions(region_).load(std::memory_order_acquire);
}

std::uint32_t Ring::CapacityField() const { return HeaderWord(region_, kCapacityOffset).load(); }

void Ring::SetPositions(RingPositions positions) const {
    HeaderPositions(region_).store(positions);
}

bool Ring::Exchange(RingPositions expected, RingPositions desired) const {
    return HeaderPositions(region_).compare_exchange_strong(expected, desired);
}

Bytes Ring::Copy(RingPositions positions) const {
    Bytes bytes;
    bytes.reserve(positions.Used());
    for (std::uint32_t at = positions.read; at != positions.write;
         at = (at + 1) % kMessageRingCapacity) {
        bytes.push_back(DataByte(region_, at).load(std::memory_order_relaxed));
    }
    return bytes;
}

bool Ring::Append(std::span<const std::uint8_t> bytes) const {
    const RingPositions positions = Positions();
    if (!positions.InRange() || bytes.size() > positions.Free()) {
        return false;
    }
    std::uint32_t at = positions.write;
    for (const std::uint8_t byte : bytes) {
        DataByte(region_, at).store(byte, std::memory_order_relaxed);
        at = (at + 1) % kMessageRingCapacity;
    }
    // The consumer owns the read position, so the write position is stored alone.
    HeaderWord(region_, kWritePositionOffset).store(at, std::memory_order_release);
    return true;
}

ServerRead DrainServerRing(const Ring& ring) {
    ServerRead result;
    for (int attempt = 0; attempt < kDrainAttempts; ++attempt) {
        const RingPositions positions = ring.Positions();
        if (positions.Empty()) {
            return result;
        }
        if (!positions.InRange()) {
            result.positionsOutOfRange = true;
            if (ring.Exchange(positions, {})) {
                return result;
            }
            continue;
        }
        const Bytes first = ring.Copy(positions);
        const bool taken = ring.Exchange(positions, {});
        const Bytes second = ring.Copy(positions);
        // Not taken and still growing from the same start: the next attempt reads it whole.
        // Reset to empty: nobody else will ever see these bytes, so they are delivered now.
        const bool wasReset = !taken && ring.Positions().Empty();
        if (first == second && (taken || wasReset)) {
            result.scan = ScanFrames(first);
            return result;
        }
        if (taken) {
            // A newer message of the same length stood in the ring when it was taken.
            result.scan = ScanFrames(second);
            return result;
        }
    }
    return result;
}

}  // namespace standin
