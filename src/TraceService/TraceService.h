// The message protocol with the tracing service: the two channels, the framing of a message (as a
// packet of a log), and the part of a client that registers, sends and receives. Built on by the
// service client. doc/message-protocol.md has the bytes.
#ifndef ZYN_TRACESERVICE_TRACESERVICE_H
#define ZYN_TRACESERVICE_TRACESERVICE_H

#include <unistd.h>

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "Support/Logging.h"
#include "Support/NoReentrantSpinLockPolicy.h"
#include "Support/SharedMemory.h"
#include "Support/Sleep.h"
#include "Support/ValidationException.h"
#include "TraceData/PacketLayout.h"
#include "TraceService/MessageRecords.h"
#include "TraceService/MessageRing.h"

// The largest message a client takes.
inline constexpr std::size_t kMessageBufferBytes = 1024;

// The channel from all clients to the service. Lives only for the sending of one message.
class ServerMessageSendingStream {
  public:
    // Throws CheckOSCall "Unable to open lock file", "Can not open file" (there is no service),
    // "Can not seek to the end of file" or "Can not open file mapping".
    ServerMessageSendingStream()
        : lock_("ZynServerMessageLock"),
          region_("ZynServerMessageBuffer"),
          ring_(region_, MessageRing::kMessageCapacity) {
        // Kept as is: every sender empties the ring, and before it holds the lock; the service
        // expects each message at the ring's start.
        ring_.Initialise();
    }

    // Writes the frame under the lock of all senders; a ring without room drops it silently.
    // Throws CheckOSCall "Can not lock" or "Can not unlock".
    void Write(std::string_view frame) {
        const AutoSync<InterProcessLock> guard(lock_);
        ring_.Append(frame);
    }

  private:
    InterProcessLock lock_;
    SharedMemory region_;
    MessageRing ring_;
};

// The channel from the service to one client; created by the client, and as long-lived.
class ClientMessageReceivingStream {
  public:
    // Throws as the creating constructor of SharedMemory does.
    explicit ClientMessageReceivingStream(std::uint32_t processId)
        : region_("ZynServerMessageBuffer" + std::to_string(processId),
                  MessageRing::RegionBytes(MessageRing::kMessageCapacity)),
          ring_(region_, MessageRing::kMessageCapacity) {
        ring_.Initialise();
    }

    [[nodiscard]] MessageRing& Ring() noexcept { return ring_; }

  private:
    SharedMemory region_;
    MessageRing ring_;
};

template <typename T>
concept MessageSendingStream = std::default_initializable<T> &&
    requires(T& stream, std::string_view frame) {
    stream.Write(frame);
};

template <typename T>
concept MessageReceivingStream = std::constructible_from<T, std::uint32_t> && requires(T& stream) {
    { stream.Ring() } -> std::same_as<MessageRing&>;
};

// Gets one message. The header stands at the start of a record, of which BytesRead() are there.
template <typename T>
concept ServiceMessageHandler = requires(T& handler, const MessageHeader* header) {
    handler.Handle(header);
};

// The handler while a registration or its end waits for its confirmation: everything else is
// consumed and ignored.
class InternalMessageHandler {
  public:
    explicit InternalMessageHandler(bool& confirmed) : confirmed_(confirmed) {}

    void Handle(const MessageHeader* header) {
        if (header->type == MessageType::kConfirmation) {
            LogDiagnostic("Received confirmation message");
            confirmed_ = true;
        }
    }

  private:
    bool& confirmed_;
};

// Frames one record and sends it through a Sender of its own.
template <MessageSendingStream Sender, typename Record>
void SendRecord(const Record& record) {
    Sender sender;
    SmartBufferOutputStream<kMessageBufferBytes> frame;
    frame.Write(kPlainBinary);
    frame.Write(static_cast<std::uint32_t>(sizeof record));
    std::array<char, sizeof record> bytes;
    std::memcpy(bytes.data(), &record, sizeof record);
    frame.write(bytes.data(), bytes.size());
    sender.Write(frame.View());
}

// Reads at most one frame and hands a message to handler. Frames of other kinds, and messages
// that end before what is read of them, are consumed and ignored. Throws CheckLogic "Insufficent
// data to be read", after consuming what was read so far, and whatever the handler throws.
template <ServiceMessageHandler Handler>
void ReceiveFrame(MessageRing& ring, Handler& handler) {
    if (!ring.HoldsBytes()) {
        return;
    }
    MessageRing::Reader reader(ring);
    const PacketHead head = ReadPacketHead(
        [&reader](char* destination, std::uint32_t count) { reader.Read(destination, count); });
    if (head.Type() != PacketType::kBinary) {
        reader.Skip(head.length);
        return;
    }
    alignas(MessageHeader) std::array<unsigned char, kMessageBufferBytes> message;
    ZYN_CHECK_LOGIC(head.length <= message.size(), "Insufficent data to be read");
    reader.Read(reinterpret_cast<char*>(message.data()), head.length);
    const auto* record = reinterpret_cast<const MessageHeader*>(message.data());
    if (head.length >= sizeof(MessageHeader) && head.length >= BytesRead(record->type)) {
        handler.Handle(record);
    }
}

// A client's registration with the service: it stands from the end of the constructor to the
// destructor. Sending is for one thread at a time, and so is receiving.
template <MessageSendingStream Sender, MessageReceivingStream Receiver>
class ServiceClient {
  public:
    static constexpr unsigned int kPollMs = 100;
    static constexpr int kPolls = 20;

    ServiceClient(const ServiceClient&) = delete;
    ServiceClient& operator=(const ServiceClient&) = delete;

    // Un-registers and waits about 2 s at most for the confirmation. Failures are logged and
    // dropped.
    virtual ~ServiceClient() {
        try {
            *this << Registration(RegistrationAction::kUnregister);
            LogDiagnostic("Service client sent un-registration message");
            const bool confirmed = AwaitConfirmation();
            ZYN_CHECK_LOGIC(confirmed, "Timeout waiting un-registration confirmation");
        } catch (...) {
            // The service may be gone, which is why the client is being destroyed.
            LogDiagnostic("Exception happened during service client destruction");
        }
    }

    // Sends the record. Throws what Sender does.
    ServiceClient& operator<<(const MessageClientRegistration& record) {
        SendRecord<Sender>(record);
        return *this;
    }

    // Reads at most one frame of the receiving ring and hands a message to handler. What goes wrong
    // is written to the diagnostic log only.
    template <ServiceMessageHandler Handler>
    void ProcessMessage(Handler& handler) {
        try {
            ReceiveFrame(receiver_.Ring(), handler);
        } catch (...) {
            // One bad message must not end the thread that reads the ring.
            LogDiagnostic("Exception happened during message handling");
        }
    }

    [[nodiscard]] bool HoldsMessages() noexcept { return receiver_.Ring().HoldsBytes(); }
    [[nodiscard]] std::uint32_t ProcessId() const noexcept { return processId_; }

  protected:
    // Registers and waits about 2 s at most for the confirmation. Throws what Sender and Receiver
    // do, and CheckLogic "Timeout waiting registration confirmation"; no un-registration is sent
    // then.
    ServiceClient() : processId_(static_cast<std::uint32_t>(getpid())), receiver_(processId_) {
        *this << Registration(RegistrationAction::kRegister);
        LogDiagnostic("Service client sent registration message");
        const bool confirmed = AwaitConfirmation();
        ZYN_CHECK_LOGIC(confirmed, "Timeout waiting registration confirmation");
    }

  private:
    [[nodiscard]] MessageClientRegistration Registration(RegistrationAction action) const {
        return {.header = {.processId = processId_, .type = MessageType::kClientRegistration},
                .action = action};
    }

    // Reads one frame per poll, on the calling thread: no other reads the ring meanwhile.
    bool AwaitConfirmation() {
        bool confirmed = false;
        InternalMessageHandler handler(confirmed);
        for (int poll = 0; poll < kPolls && !confirmed; ++poll) {
            ProcessMessage(handler);
            if (!confirmed) {
                SleepMilliseconds(kPollMs);
            }
        }
        return confirmed;
    }

    std::uint32_t processId_;
    Receiver receiver_;
};

#endif
