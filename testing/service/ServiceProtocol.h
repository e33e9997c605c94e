#ifndef ZYN_TESTING_SERVICE_SERVICEPROTOCOL_H
#define ZYN_TESTING_SERVICE_SERVICEPROTOCOL_H

// The tracing service's side of the message protocol: records, frames and the ring that carries
// them, written from the byte layouts of doc/message-protocol.md alone. Nothing of src/ is
// included, so that a mistake in the client cannot hide behind the same mistake here; the namespace
// keeps these names apart from the client's where one test program links both.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace standin {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kRingHeaderBytes = 12;
inline constexpr std::uint32_t kMessageRingCapacity = 512;
inline constexpr std::uint32_t kMessageRegionBytes = kRingHeaderBytes + kMessageRingCapacity;
inline constexpr std::uint32_t kSeedRegionBytes = 4;

// Frame header byte: data kind in the low four bits, bit 5 announces a 16-bit id.
inline constexpr std::uint8_t kMessageFrameHeader = 0x0A;
inline constexpr std::uint8_t kKindMask = 0x0F;
inline constexpr std::uint8_t kIdBit = 0x20;
inline constexpr std::uint8_t kMessageKind = 10;
inline constexpr std::uint8_t kFirstKindWithLength = 8;

inline constexpr std::uint32_t kTypeRegistration = 1;
inline constexpr std::uint32_t kTypeConfigurationChange = 2;
inline constexpr std::uint32_t kTypeConfirmation = 3;
inline constexpr std::uint32_t kTypePing = 4;

inline constexpr std::uint32_t kActionRegister = 0;
inline constexpr std::uint32_t kActionUnregister = 2;

inline constexpr std::uint32_t kChangeReload = 0;
inline constexpr std::uint32_t kChangePause = 1;
inline constexpr std::uint32_t kChangeResume = 2;
inline constexpr std::uint32_t kChangePreservationOn = 3;
inline constexpr std::uint32_t kChangePreservationOff = 4;

// "reload", "pause", "resume", "preservation on", "preservation off", or "change <code>".
[[nodiscard]] std::string ChangeName(std::uint32_t code);

// A message record; what a short record does not hold is absent, never zero.
struct Message {
    std::uint32_t processId = 0;
    std::uint32_t type = 0;
    // The action of a registration or the code of a change.
    std::optional<std::uint32_t> argument;
};

// Empty when the payload is shorter than the 8 bytes that every record starts with.
[[nodiscard]] std::optional<Message> DecodeMessage(std::span<const std::uint8_t> payload);

[[nodiscard]] Bytes RegistrationRecord(std::uint32_t processId, std::uint32_t action);
// 16 bytes, the fourth word 0.
[[nodiscard]] Bytes ChangeRecord(std::uint32_t processId, std::uint32_t code);
// The 8 bytes of a confirmation, a ping or an unknown type.
[[nodiscard]] Bytes HeaderRecord(std::uint32_t processId, std::uint32_t type);

// Payload length of a kind that states none: 0, 1, 1, 2, 4, 8, 0, 0 for the kinds 0 to 7.
[[nodiscard]] std::uint32_t ImpliedLength(std::uint8_t kind);

// Frames `payload` under any header byte: an id (when bit 5 is set) and, for the kinds 8 to
// 15, the payload's length go in front. The caller gives kinds 0 to 7 a payload of their implied
// length.
[[nodiscard]] Bytes Frame(std::uint8_t header, std::span<const std::uint8_t> payload);
[[nodiscard]] Bytes MessageFrame(std::span<const std::uint8_t> payload);

struct ReceivedFrame {
    std::uint8_t header = 0;
    Bytes payload;
};

struct FrameScan {
    std::vector<ReceivedFrame> frames;
    // Bytes at the end that are not a whole frame.
    std::size_t trailingBytes = 0;
};

[[nodiscard]] FrameScan ScanFrames(std::span<const std::uint8_t> bytes);

// Both positions of a ring, as the header has them: aligned, so that both are loaded and stored at
// once, on 32-bit x86 too.
struct alignas(8) RingPositions {
    std::uint32_t read = 0;
    std::uint32_t write = 0;

    [[nodiscard]] bool Empty() const { return read == write; }
    [[nodiscard]] bool InRange() const {
        return read < kMessageRingCapacity && write < kMessageRingCapacity;
    }
    // Bytes between the positions; both in range.
    [[nodiscard]] std::uint32_t Used() const {
        return (write + kMessageRingCapacity - read) % kMessageRingCapacity;
    }
    // One byte always stays free.
    [[nodiscard]] std::uint32_t Free() const { return kMessageRingCapacity - 1 - Used(); }

    bool operator==(const RingPositions&) const = default;
};

// A view of a message ring in a mapped region of at least kMessageRegionBytes, aligned to 8 bytes.
// The capacity is always the constant, never the field in the region. Header words are accessed
// atomically, data bytes as relaxed atomics, so a peer that writes at a bad moment is no undefined
// behaviour here. The region outlives the view.
class Ring {
  public:
    explicit Ring(std::uint8_t* region) : region_(region) {}

    // Resets the header (0, 0, 512) with plain word stores, as everybody does who opens a ring.
    void Initialise() const;

    [[nodiscard]] RingPositions Positions() const;
    [[nodiscard]] std::uint32_t CapacityField() const;
    void SetPositions(RingPositions positions) const;
    // Replaces both positions at once if they still are `expected`. In one step, because a reset
    // between two stores would leave a position from before it beside one from after it.
    [[nodiscard]] bool Exchange(RingPositions expected, RingPositions desired) const;

    // The bytes between two positions in range; moves nothing.
    [[nodiscard]] Bytes Copy(RingPositions positions) const;

    // Writes `bytes` as the producer does, split over the end where it must be. False, with nothing
    // written, when the positions are out of range or the room does not suffice.
    [[nodiscard]] bool Append(std::span<const std::uint8_t> bytes) const;

  private:
    std::uint8_t* region_;
};

struct ServerRead {
    FrameScan scan;
    // Positions were outside the data area and have been set back to 0.
    bool positionsOutOfRange = false;
};

// Takes all frames out of the server ring and leaves it at positions 0, 0. Every sender resets the
// header before it takes the lock, at any moment of the reading: with the ring left at 0, 0 a reset
// that comes late changes nothing, and one that comes in the middle is found by the exchange of
// both positions, after which the copied bytes only count if the ring still holds the same ones.
// The caller holds the senders' lock where there is one.
[[nodiscard]] ServerRead DrainServerRing(const Ring& ring);

}  // namespace standin

#endif  // ZYN_TESTING_SERVICE_SERVICEPROTOCOL_H
