// The messages between a client and the tracing service, as they lie in the rings: fixed-width
// little-endian words, the same for 32-bit and 64-bit programs. doc/message-protocol.md has the
// bytes.
#ifndef ZYN_TRACESERVICE_MESSAGERECORDS_H
#define ZYN_TRACESERVICE_MESSAGERECORDS_H

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

// The length of the record of a type; what is shorter cannot be such a message. Of all other types
// only the header is read.
constexpr std::uint32_t RecordLength(MessageType type) noexcept {
    switch (type) {
        case MessageType::kClientRegistration:
            return sizeof(MessageClientRegistration);
        case MessageType::kRuntimeConfigurationChange:
            return sizeof(MessageRuntimeConfigurationChange);
        case MessageType::kConfirmation:
        case MessageType::kPing:
            break;
    }
    return sizeof(MessageHeader);
}

#endif
