// This process's registration with the running tracing service: orders come in, control requests go
// out. Created by the service monitor when it finds the service, deleted when the service goes or
// the connection is closed.
#ifndef ZYN_ZYNSERVICE_ZYNSERVICECLIENT_H
#define ZYN_ZYNSERVICE_ZYNSERVICECLIENT_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "Support/NoReentrantSpinLockPolicy.h"
#include "Support/SharedMemory.h"
#include "Support/Thread.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "TraceService/TraceService.h"

// A client's ring of trace records, with the number that orders the records of all clients. It must
// stand before the client registers and go before it un-registers.
class ClientTraceBuffer {
  public:
    // Throws as SharedMemory does, and CheckOSCall "Unable to initiate mutex".
    explicit ClientTraceBuffer(std::uint32_t processId);
    ClientTraceBuffer(const ClientTraceBuffer&) = delete;
    ClientTraceBuffer& operator=(const ClientTraceBuffer&) = delete;
    ~ClientTraceBuffer() { ReleaseTraceBuffer(); }

  protected:
    // The owner's mutex: one load of the configuration at a time.
    [[nodiscard]] CriticalSectionSyncPolicy& Mutex() noexcept { return parts_->mutex; }

    // Unmaps both regions and removes the ring's file, before the object goes. Failures are
    // dropped.
    void ReleaseTraceBuffer() noexcept;

  private:
    struct Parts {
        explicit Parts(std::uint32_t processId);

        SharedMemory region;
        MessageRing ring;
        CriticalSectionSyncPolicy mutex;
        SharedMemory seedRegion;
        // Of the next record; kept for the tracing side, which writes records.
        std::uint32_t* seed;
    };

    std::unique_ptr<Parts> parts_;
};

// Connected while it exists. Its timer thread reads the receiving ring; operator<< is for one
// thread at a time. The filter manager outlives the client.
class ZynServiceClient
    : private ClientTraceBuffer,
      public ServiceClient<ServerMessageSendingStream, ClientMessageReceivingStream> {
  public:
    using Base = ServiceClient<ServerMessageSendingStream, ClientMessageReceivingStream>;

    // Acts on the messages of the service.
    class MessageHandler {
      public:
        MessageHandler(ZynFilterManager& filterManager, CriticalSectionSyncPolicy& reloading,
                       std::atomic<bool>& confirmed)
            : filterManager_(filterManager), reloading_(reloading), confirmed_(confirmed) {}

        // header stands at the start of a record, of which BytesRead() are there. Throws what kept
        // a reload from reading the configuration file.
        void Handle(const MessageHeader* header);

        // Empties the status caches, resets the filter and reads the configuration file into it.
        // Throws the reader's failure when the file cannot be loaded; the filter then stays reset,
        // and marked as not loaded.
        void Reload();

      private:
        void HandleChange(ConfigurationChange change);

        ZynFilterManager& filterManager_;
        CriticalSectionSyncPolicy& reloading_;
        std::atomic<bool>& confirmed_;
    };

    // Registers with the service of that process id, and reads the configuration into the filter
    // manager. Takes about 2 s when the service does not confirm, then throws CheckLogic "Timeout
    // waiting registration confirmation". Throws also what ClientTraceBuffer, the base and the
    // timer thread do. A configuration that cannot be read is no failure here.
    ZynServiceClient(unsigned int servicePid, ZynFilterManager& filterManager);
    ZynServiceClient(const ZynServiceClient&) = delete;
    ZynServiceClient& operator=(const ZynServiceClient&) = delete;
    // Ends the timer thread and un-registers, which may take about 2 s. Failures are dropped.
    ~ZynServiceClient() override;

    using Base::operator<<;
    // Sends a control request and waits about 2 s at most. Throws CheckLogic "Timeout waiting for
    // confirmation", and what the sending stream does.
    ZynServiceClient& operator<<(const MessageRuntimeConfigurationChange& request);

    [[nodiscard]] unsigned int ServicePid() const noexcept { return servicePid_; }

  private:
    // What the timer calls: empties the receiving ring.
    class ServiceClientThreadHelper {
      public:
        explicit ServiceClientThreadHelper(ZynServiceClient& client) : client_(&client) {}
        void operator()();

      private:
        ZynServiceClient* client_;
    };
    using Timer = TimerClassMemberFunction<ServiceClientThreadHelper, true>;

    unsigned int servicePid_;
    ZynFilterManager& filterManager_;
    // Refers to the flag below.
    MessageHandler handler_;
    // Set by the timer thread, cleared and polled by the sender of a request.
    std::atomic<bool> confirmed_{false};
    // Set by the destructor, looked at by the timer thread between two frames.
    std::atomic<bool> stopReceiving_{false};
    // Last: started when all else is there, joined before anything goes.
    std::unique_ptr<Timer> timer_;
};

#endif
