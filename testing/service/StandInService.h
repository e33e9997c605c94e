#ifndef ZYN_TESTING_SERVICE_STANDINSERVICE_H
#define ZYN_TESTING_SERVICE_STANDINSERVICE_H

// A stand-in for the tracing service, for tests and demonstrations: it owns the service's files in
// a run directory, answers its clients, and fails on request in any of the ways that ServiceOptions
// lists. zyn-standin-service is this class as a program; unit tests run it in a thread or step by
// step.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "testing/service/ServiceFiles.h"
#include "testing/service/ServiceProtocol.h"

namespace standin {

// Moments at which the service can be made to die or stop.
enum class ServiceStep {
    kRegistration,    // registration seen, not yet confirmed
    kConfirm,         // the first confirmation of any kind has been written
    kRequest,         // request seen, nothing done about it
    kOrder,           // the request's orders are written, it is not yet confirmed
    kUnregistration,  // un-registration seen, not yet confirmed
};

// "registration", "confirm", "request", "order", "unregistration".
[[nodiscard]] const char* StepName(ServiceStep step);

// What a confirmation answers.
enum class Reply { kRegistration, kRequest, kUnregistration };

// Every member has a default, so that a test names only what it changes:
//     StandInService service({.runDirectory = directory, .silent = true});
struct ServiceOptions {
    std::string runDirectory;

    // What is in the run directory.
    std::optional<std::string> pidText =
        std::nullopt;  // instead of this process's id and a line end
    bool lockFile = true;
    bool seedRegion = true;
    std::uint32_t serverRegionBytes = kMessageRegionBytes;

    // What is answered, and when.
    bool silent = false;                   // neither confirms nor passes orders on
    bool confirmRegistrationOnly = false;  // silent after the registration
    bool confirmFirst = false;             // confirmation before the orders, not after them
    std::chrono::milliseconds confirmationDelay{0};
    std::chrono::milliseconds pingPeriod{0};  // 0: no pings of its own
    std::optional<ServiceStep> dieAt = std::nullopt;
    std::optional<ServiceStep> stopAt = std::nullopt;  // the first time only

    // What stands in a client's ring before each confirmation named in `faultsBefore`.
    std::set<Reply> faultsBefore = {Reply::kRegistration, Reply::kRequest, Reply::kUnregistration};
    std::optional<std::uint8_t> extraFrameHeader = std::nullopt;  // one frame with this header byte
    bool unknownTypes = false;       // records of types and codes nobody knows
    bool truncatedMessages = false;  // records shorter than their kind
    std::optional<std::uint32_t> longFrameBytes =
        std::nullopt;    // one frame that states this length
    bool flood = false;  // pings and fillers until the ring is full
    std::optional<RingPositions> badPositions = std::nullopt;  // stored as they are

    // Every frame is written across the end of an emptied ring, at changing places.
    bool split = false;

    // Called with the service's mutex held, so they must not call back into the service.
    std::function<void(const std::string& text)> onEvent = nullptr;
    std::function<void()> onDie = nullptr;  // the service is over when this returns, its files stay
    std::function<void()> onStop = nullptr;  // the service goes on when this returns
};

enum class EventKind {
    kReady,
    kRegistered,
    kUnregistered,
    kRequested,
    kConfirmed,
    kOrdered,
    kPinged,
    kSent,     // other bytes, by a fault option or on command
    kProblem,  // something received or met that a sane client does not do
    kDied,
    kStopped,
    kEnded,
};

struct ServiceEvent {
    EventKind kind;
    std::uint32_t processId = 0;
    std::string text;
};

// Member functions may be called from any thread. Files are created by Open and removed by Close;
// a service that has died (dieAt) leaves them behind.
class StandInService {
  public:
    explicit StandInService(ServiceOptions options);
    StandInService(const StandInService&) = delete;
    StandInService& operator=(const StandInService&) = delete;
    ~StandInService();

    // Creates the files: regions first, lock file last, so that a client that sees the lock file
    // finds the rest. Throws std::system_error.
    void Open();
    // One poll: reads the server ring, answers, delivers what is due. Does nothing once dead.
    void Step();
    // Removes the files. Dropping a failure is right here: a test may have removed them first.
    void Close();

    // Open, then Step about every millisecond on a thread of its own until Stop, which also closes.
    void Start();
    void Stop();

    // To every registered client; delivered before the call returns if the ring has room. Positions
    // are only set once the client has read what was sent before; more than 511 bytes are refused.
    void Order(std::uint32_t changeCode);
    void Ping();
    void Send(std::span<const std::uint8_t> bytes);
    void SetPositions(RingPositions positions);

    [[nodiscard]] std::vector<ServiceEvent> Events() const;
    [[nodiscard]] std::vector<std::uint32_t> RegisteredClients() const;

    // Waits until `count` events with this text have been seen since Open; false at the timeout.
    [[nodiscard]] bool WaitForEvent(const std::string& text, std::chrono::milliseconds timeout,
                                    std::size_t count = 1) const;

  private:
    using Clock = std::chrono::steady_clock;

    // One operation on a client's ring.
    struct Delivery {
        enum class Action { kAppend, kFlood, kPositions };
        Action action = Action::kAppend;
        Bytes bytes;
        RingPositions positions;
        Clock::time_point notBefore;
        ServiceEvent event;
    };
    struct Client {
        bool registered = false;
        std::deque<Delivery> queue;
    };
    enum class Outcome { kDone, kBlocked };

    void HandleFrame(const ReceivedFrame& frame);
    void HandleRegistration(const Message& message);
    void HandleRequest(const Message& message);
    void OrderAll(std::uint32_t changeCode, std::uint32_t requester);
    void Confirm(std::uint32_t processId, Reply reply, const std::string& what);
    void QueueFaults(std::uint32_t processId, Reply reply, Clock::time_point notBefore);
    Delivery& Queue(std::uint32_t processId, EventKind kind, const std::string& text, Bytes bytes,
                    Clock::time_point notBefore);
    void QueueForAll(EventKind kind, const std::string& text,
                     const std::function<void(Delivery& delivery)>& fill);
    void PingAll();
    void DeliverAll();
    // False when the client's ring cannot be reached.
    bool DeliverTo(std::uint32_t processId, Client& client);
    Outcome Deliver(const Ring& ring, const Delivery& delivery);
    Outcome AppendFrame(const Ring& ring, const Bytes& bytes);
    // True when the service has just died.
    bool At(ServiceStep step);
    void Note(EventKind kind, std::uint32_t processId, const std::string& text);
    void StepLocked();
    void Run();

    const ServiceOptions options_;
    SenderLock senderLock_;

    mutable std::mutex mutex_;  // guards everything below but thread_
    mutable std::condition_variable changed_;
    std::optional<MappedFile> serverRegion_;
    std::optional<MappedFile> seedRegion_;
    std::map<std::uint32_t, Client> clients_;
    std::vector<ServiceEvent> events_;
    Clock::time_point nextPing_;
    std::uint32_t splitCount_ = 0;
    bool open_ = false;
    bool dead_ = false;
    bool stopUsed_ = false;
    bool ending_ = false;

    std::thread thread_;
};

}  // namespace standin

#endif  // ZYN_TESTING_SERVICE_STANDINSERVICE_H
