#include "ZynService/ZynServiceClient.h"

#include <cstring>
#include <exception>
#include <string>

#include "Support/ConfigPath.h"
#include "Support/DropFailure.h"
#include "Support/Logging.h"
#include "Support/Sleep.h"
#include "Support/ValidationException.h"
#include "TraceFiltering/ZynClientConfigProcessor.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"

namespace {

MessageRing EmptyTraceRing(SharedMemory& region) {
    MessageRing ring(region, MessageRing::kTraceCapacity);
    ring.Initialise();
    return ring;
}

}  // namespace

ClientTraceBuffer::Parts::Parts(std::uint32_t processId)
    : region("ZynTraceBuffer" + std::to_string(processId),
             MessageRing::RegionBytes(MessageRing::kTraceCapacity),
             // Nothing is written into the ring by this side.
             MessageRing::kHeaderBytes),
      ring(EmptyTraceRing(region)),
      seedRegion("ZynRecordSequenceNumberSeed"),
      seed(reinterpret_cast<std::uint32_t*>(seedRegion.Address())) {
    seedRegion.Require(sizeof *seed);
}

ClientTraceBuffer::ClientTraceBuffer(std::uint32_t processId)
    : parts_(std::make_unique<Parts>(processId)) {}

void ClientTraceBuffer::ReleaseTraceBuffer() noexcept {
    // Not by unique_ptr, which an exception of the mutex would not leave.
    DropFailure([parts = parts_.release()] { delete parts; });
}

void ZynServiceClient::MessageHandler::Handle(const MessageHeader* header) {
    switch (header->type) {
        case MessageType::kConfirmation:
            confirmed_.store(true, std::memory_order_relaxed);
            return;
        case MessageType::kPing:
            LogDiagnostic("Ping");
            return;
        case MessageType::kRuntimeConfigurationChange: {
            LogDiagnostic("ZYN client received RuntimeConfigChange message");
            MessageRuntimeConfigurationChange order{};
            std::memcpy(&order, header, kChangeBytesRead);
            HandleChange(order.change);
            return;
        }
        case MessageType::kClientRegistration:
            break;
    }
    LogDiagnostic("ZYN client received unknown message");
}

void ZynServiceClient::MessageHandler::HandleChange(ConfigurationChange change) {
    switch (change) {
        case ConfigurationChange::kPause:
            LogDiagnostic("ZYN client pause tracing");
            filterManager_.SetPaused(true);
            break;
        case ConfigurationChange::kResume:
            LogDiagnostic("ZYN client resume tracing");
            filterManager_.SetPaused(false);
            break;
        case ConfigurationChange::kReload:
            Reload();
            break;
        case ConfigurationChange::kPreservationOn:
        case ConfigurationChange::kPreservationOff:
            break;
    }
}

void ZynServiceClient::MessageHandler::Reload() {
    // A first load on the connecting thread and an order on the timer thread may meet.
    const AutoSync<CriticalSectionSyncPolicy> oneAtATime(reloading_);
    ZynClientConfigProcessor<ZynFilterManager> processor(filterManager_);
    ZynConfigFileReader<ZynClientConfigProcessor<ZynFilterManager>> reader(processor);
    {
        const FilterReload reload(filterManager_);
        LogDiagnostic("ZYN client reload configuration.");
        reader.Read(ZynConfigPathPolicy());
    }
    if (!reader.Loaded()) {
        std::rethrow_exception(reader.Failure());
    }
    filterManager_.SetLoaded(true);
}

ZynServiceClient::ZynServiceClient(unsigned int servicePid, ZynFilterManager& filterManager)
    : ClientTraceBuffer(static_cast<std::uint32_t>(getpid())),
      servicePid_(servicePid),
      filterManager_(filterManager),
      handler_(filterManager, Mutex(), confirmed_),
      timer_(std::make_unique<Timer>(ServiceClientThreadHelper(*this), kPollMs)) {
    // No control request fails for want of a configuration.
    DropFailure([this] { handler_.Reload(); });
}

ZynServiceClient::~ZynServiceClient() {
    stopReceiving_.store(true, std::memory_order_relaxed);
    DropFailure([this] { timer_->Join(); });
    DropFailure([this] { filterManager_.SetLoaded(false); });
    ReleaseTraceBuffer();
}

ZynServiceClient& ZynServiceClient::operator<<(const MessageRuntimeConfigurationChange& request) {
    const auto confirmed = [this] { return confirmed_.load(std::memory_order_relaxed); };
    confirmed_.store(false, std::memory_order_relaxed);
    SendRecord<ServerMessageSendingStream>(request);
    for (int poll = 0; poll < kPolls && !confirmed(); ++poll) {
        SleepMilliseconds(kPollMs);
    }
    ZYN_CHECK_LOGIC(confirmed(), "Timeout waiting for confirmation");
    return *this;
}

void ZynServiceClient::ServiceClientThreadHelper::operator()() {
    while (client_->HoldsMessages() && !client_->stopReceiving_.load(std::memory_order_relaxed)) {
        client_->ProcessMessage(client_->handler_);
    }
}
