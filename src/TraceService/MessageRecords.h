// The messages between a client and the tracing service, as they lie in the rings: fixed-width
// little-endian words, the same for 32-bit and 64-bit programs. doc/message-protocol.md has the
// bytes.
#ifndef ZYN_TRACESERVICE_MESSAGERECORDS_H
#define ZYN_TRACESERVICE_MESSAGERECORDS_H

#include <cstddef>
#include <cstdint>

enum class MessageType : std::uint32_t {
    kClientRegistration = 1,
    kRuntimeConfigurationChange = 2,
    kConfirmation = 3,
    kPing = 4,
};

enum class RegistrationAction : std::uint32_t {
    kRegister = 0,
    kUnregister = 2,
};

enum class ConfigurationChange : std::uint32_t {
    kReload = 0,
    kPause = 1,
    kResume = 2,
    // These two are for the service alone; a client that receives them ignores them.
    kPreservationOn = 3,
    kPreservationOff = 4,
};

// Every message begins with it. A type that comes from the service may be any number.
struct MessageHeader {
    std::uint32_t processId;  // the client's
    MessageType type;
};

struct MessageClientRegistration {
    MessageHeader header;
    RegistrationAction action;
};

struct MessageRuntimeConfigurationChange {
    MessageHeader header;
    ConfigurationChange change;
    std::uint32_t unused;  // sent as 0, ignored by the receiver
};

static_assert(sizeof(MessageHeader) == 8);
static_assert(sizeof(MessageClientRegistration) == 12);
static_assert(sizeof(MessageRuntimeConfigurationChange) == 16);

// The bytes of a change that a receiver reads: all but the word without meaning at its end.
constexpr std::uint32_t kChangeBytesRead = offsetof(MessageRuntimeConfigurationChange, unused);

// What a client reads of a message of a type: an order up to its change code, and of all other
// types the header. What is shorter cannot be such a message.
constexpr std::uint32_t BytesRead(MessageType type) noexcept {
    return type == MessageType::kRuntimeConfigurationChange ? kChangeBytesRead
                                                            : sizeof(MessageHeader);
}

#endif
