// The stand-in service: registry of clients, queues of what they are sent, ways of failing.

#include "testing/service/StandInService.h"

#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace standin {

namespace {

constexpr std::chrono::milliseconds kPollPeriod{1};

std::string PathIn(const std::string& directory, const std::string& name) {
    return directory + "/" + name;
}

std::string PidText(std::uint32_t processId) { return "pid " + std::to_string(processId); }

std::string PositionsText(RingPositions positions) {
    return "positions " + std::to_string(positions.read) + "," + std::to_string(positions.write);
}

// States `length`, but brings no more than an empty ring can take.
Bytes LongFrame(std::uint32_t length) {
    constexpr std::uint32_t kPrefixBytes = 5;
    Bytes payload(length <= kMessageRingCapacity - 1 - kPrefixBytes
                      ? length
                      : kMessageRingCapacity - 1 - kPrefixBytes);
    Bytes frame = MessageFrame(payload);
    for (std::size_t i = 0; i < sizeof length; ++i) {
        frame[1 + i] = static_cast<std::uint8_t>(length >> (8 * i));
    }
    return frame;
}

}  // namespace

const char* StepName(ServiceStep step) {
    switch (step) {
        case ServiceStep::kRegistration:
            return "registration";
        case ServiceStep::kConfirm:
            return "confirm";
        case ServiceStep::kRequest:
            return "request";
        case ServiceStep::kOrder:
            return "order";
        case ServiceStep::kUnregistration:
            return "unregistration";
    }
    return "";
}

StandInService::StandInService(ServiceOptions options)
    : options_(std::move(options)), senderLock_(PathIn(options_.runDirectory, kSenderLockFile)) {}

StandInService::~StandInService() { Stop(); }

void StandInService::Open() {
    const std::scoped_lock lock(mutex_);
    const std::string& directory = options_.runDirectory;
    serverRegion_.emplace(
        MappedFile::Create(PathIn(directory, kServerRegionFile), options_.serverRegionBytes));
    if (serverRegion_->Size() >= kRingHeaderBytes) {
        Ring(serverRegion_->Data()).Initialise();
    }
    open_ = true;
    if (options_.seedRegion) {
        seedRegion_.emplace(
            MappedFile::Create(PathIn(directory, kSeedRegionFile), kSeedRegionBytes));
    }
    WriteTextFile(PathIn(directory, kPidFile),
                  options_.pidText.value_or(std::to_string(::getpid()) + "\n"));
    if (options_.lockFile) {
        WriteTextFile(PathIn(directory, kServiceLockFile), "");
    }
    nextPing_ = Clock::now() + options_.pingPeriod;
    Note(EventKind::kReady, 0, "ready");
}

void StandInService::Close() {
    const std::scoped_lock lock(mutex_);
    if (!open_ || dead_) {
        return;
    }
    // In the reverse order of Open: without the lock file no new client comes.
    const auto remove = [this](const char* name) {
        ::unlink(PathIn(options_.runDirectory, name).c_str());
    };
    if (options_.lockFile) {
        remove(kServiceLockFile);
    }
    remove(kPidFile);
    if (options_.seedRegion) {
        remove(kSeedRegionFile);
    }
    remove(kServerRegionFile);
    serverRegion_.reset();
    seedRegion_.reset();
    open_ = false;
    Note(EventKind::kEnded, 0, "ended");
}

void StandInService::Start() {
    Open();
    thread_ = std::thread([this] { Run(); });
}

void StandInService::Stop() {
    {
        const std::scoped_lock lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
    Close();
}

void StandInService::Run() {
    std::unique_lock lock(mutex_);
    while (!changed_.wait_for(lock, kPollPeriod, [this] { return ending_; })) {
        StepLocked();
    }
}

void StandInService::Step() {
    const std::scoped_lock lock(mutex_);
    StepLocked();
}

void StandInService::StepLocked() {
    if (dead_ || !open_) {
        return;
    }
    // A region made too small on purpose has no data area to read.
    if (serverRegion_->Size() >= kMessageRegionBytes) {
        const Ring ring(serverRegion_->Data());
        if (!ring.Positions().Empty() && senderLock_.TryAcquire()) {
            const ServerRead read = DrainServerRing(ring);
            senderLock_.Release();
            if (read.positionsOutOfRange) {
                Note(EventKind::kProblem, 0, "server ring positions out of range");
            }
            for (const ReceivedFrame& frame : read.scan.frames) {
                HandleFrame(frame);
            }
            if (read.scan.trailingBytes != 0) {
                Note(EventKind::kProblem, 0,
                     "dropped " + std::to_string(read.scan.trailingBytes) +
                         " bytes that are no whole frame");
            }
        }
    }
    if (options_.pingPeriod.count() > 0 && Clock::now() >= nextPing_) {
        nextPing_ = Clock::now() + options_.pingPeriod;
        PingAll();
    }
    DeliverAll();
}

void StandInService::HandleFrame(const ReceivedFrame& frame) {
    if (dead_) {
        return;
    }
    if ((frame.header & kKindMask) != kMessageKind) {
        Note(EventKind::kProblem, 0,
             "skipped frame of kind " + std::to_string(frame.header & kKindMask));
        return;
    }
    const std::optional<Message> message = DecodeMessage(frame.payload);
    if (!message) {
        Note(EventKind::kProblem, 0,
             "ignored message of " + std::to_string(frame.payload.size()) + " bytes");
    } else if (message->type == kTypeRegistration && message->argument) {
        HandleRegistration(*message);
    } else if (message->type == kTypeConfigurationChange && message->argument) {
        HandleRequest(*message);
    } else {
        Note(EventKind::kProblem, message->processId,
             "ignored message of type " + std::to_string(message->type) + " and " +
                 std::to_string(frame.payload.size()) + " bytes from " +
                 PidText(message->processId));
    }
}

void StandInService::HandleRegistration(const Message& message) {
    const std::uint32_t pid = message.processId;
    if (message.argument == kActionRegister) {
        // Whatever was still due to an earlier client of that id is not for this one.
        clients_[pid] = Client{.registered = true, .queue = {}};
        Note(EventKind::kRegistered, pid, "registered " + PidText(pid));
        if (!At(ServiceStep::kRegistration)) {
            Confirm(pid, Reply::kRegistration, "registration");
        }
    } else if (message.argument == kActionUnregister) {
        clients_[pid].registered = false;
        Note(EventKind::kUnregistered, pid, "un-registered " + PidText(pid));
        if (!At(ServiceStep::kUnregistration)) {
            Confirm(pid, Reply::kUnregistration, "un-registration");
        }
    } else {
        Note(EventKind::kProblem, pid,
             "ignored registration action " + std::to_string(*message.argument) + " from " +
                 PidText(pid));
    }
}

void StandInService::HandleRequest(const Message& message) {
    const std::uint32_t pid = message.processId;
    const std::uint32_t code = *message.argument;
    const bool known = clients_[pid].registered;
    Note(EventKind::kRequested, pid,
         "request " + ChangeName(code) + " from " + PidText(pid) +
             (known ? "" : " (not registered)"));
    if (At(ServiceStep::kRequest)) {
        return;
    }
    if (options_.confirmFirst) {
        Confirm(pid, Reply::kRequest, ChangeName(code));
    }
    // Preservation concerns the service alone; clients only follow the other three.
    const bool answers = !options_.silent && !options_.confirmRegistrationOnly;
    if (answers && code <= kChangeResume) {
        OrderAll(code, pid);
        DeliverAll();
        if (dead_ || At(ServiceStep::kOrder)) {
            return;
        }
    }
    if (!options_.confirmFirst) {
        Confirm(pid, Reply::kRequest, ChangeName(code));
    }
}

void StandInService::Confirm(std::uint32_t processId, Reply reply, const std::string& what) {
    if (options_.silent || (options_.confirmRegistrationOnly && reply != Reply::kRegistration)) {
        return;
    }
    const Clock::time_point notBefore = Clock::now() + options_.confirmationDelay;
    QueueFaults(processId, reply, notBefore);
    Queue(processId, EventKind::kConfirmed, "confirmed " + what + " of " + PidText(processId),
          MessageFrame(HeaderRecord(processId, kTypeConfirmation)), notBefore);
}

void StandInService::QueueFaults(std::uint32_t processId, Reply reply,
                                 Clock::time_point notBefore) {
    if (!options_.faultsBefore.contains(reply)) {
        return;
    }
    const auto add = [&](const std::string& what, Bytes bytes) -> Delivery& {
        return Queue(processId, EventKind::kSent, what + " -> " + PidText(processId),
                     std::move(bytes), notBefore);
    };
    if (options_.extraFrameHeader) {
        const std::uint8_t header = *options_.extraFrameHeader;
        const auto kind = static_cast<std::uint8_t>(header & kKindMask);
        const Bytes payload = kind < kFirstKindWithLength ? Bytes(ImpliedLength(kind))
                                                          : HeaderRecord(processId, kTypePing);
        add("frame with header " + std::to_string(header), Frame(header, payload));
    }
    if (options_.unknownTypes) {
        for (const std::uint32_t type : {0U, 5U, 0xFFFFFFFFU}) {
            add("message type " + std::to_string(type),
                MessageFrame(HeaderRecord(processId, type)));
        }
        for (const std::uint32_t code : {3U, 4U, 5U, 0xFFFFFFFFU}) {
            add(ChangeName(code), MessageFrame(ChangeRecord(processId, code)));
        }
    }
    if (options_.truncatedMessages) {
        // The last one is a change without its code: whoever takes the missing word for 0 reloads.
        const Bytes record = ChangeRecord(processId, kChangeReload);
        for (const std::size_t bytes : {0U, 4U, 8U}) {
            add("message of " + std::to_string(bytes) + " bytes",
                MessageFrame(std::span(record).first(bytes)));
        }
    }
    if (options_.longFrameBytes) {
        add("frame that states " + std::to_string(*options_.longFrameBytes) + " bytes",
            LongFrame(*options_.longFrameBytes));
    }
    if (options_.flood) {
        add("flood", {}).action = Delivery::Action::kFlood;
    }
    if (options_.badPositions) {
        const RingPositions positions = *options_.badPositions;
        Delivery& delivery = add(PositionsText(positions), {});
        delivery.action = Delivery::Action::kPositions;
        delivery.positions = positions;
    }
}

StandInService::Delivery& StandInService::Queue(std::uint32_t processId, EventKind kind,
                                                const std::string& text, Bytes bytes,
                                                Clock::time_point notBefore) {
    return clients_[processId].queue.emplace_back(Delivery{.action = Delivery::Action::kAppend,
                                                           .bytes = std::move(bytes),
                                                           .positions = {},
                                                           .notBefore = notBefore,
                                                           .event = {kind, processId, text}});
}

void StandInService::QueueForAll(EventKind kind, const std::string& text,
                                 const std::function<void(Delivery&)>& fill) {
    for (const auto& [pid, client] : clients_) {
        if (client.registered) {
            fill(Queue(pid, kind, text + " -> " + PidText(pid), {}, Clock::now()));
        }
    }
}

void StandInService::OrderAll(std::uint32_t changeCode, std::uint32_t requester) {
    QueueForAll(EventKind::kOrdered, "order " + ChangeName(changeCode), [=](Delivery& delivery) {
        delivery.bytes = MessageFrame(ChangeRecord(requester, changeCode));
    });
}

void StandInService::PingAll() {
    QueueForAll(EventKind::kPinged, "ping", [](Delivery& delivery) {
        delivery.bytes = MessageFrame(HeaderRecord(delivery.event.processId, kTypePing));
    });
}

void StandInService::Order(std::uint32_t changeCode) {
    const std::scoped_lock lock(mutex_);
    OrderAll(changeCode, static_cast<std::uint32_t>(::getpid()));
    DeliverAll();
}

void StandInService::Ping() {
    const std::scoped_lock lock(mutex_);
    PingAll();
    DeliverAll();
}

void StandInService::Send(std::span<const std::uint8_t> bytes) {
    const std::scoped_lock lock(mutex_);
    if (bytes.size() >= kMessageRingCapacity) {
        Note(EventKind::kProblem, 0,
             "cannot send " + std::to_string(bytes.size()) + " bytes: no ring holds them");
        return;
    }
    QueueForAll(EventKind::kSent, std::to_string(bytes.size()) + " bytes",
                [&](Delivery& delivery) { delivery.bytes.assign(bytes.begin(), bytes.end()); });
    DeliverAll();
}

void StandInService::SetPositions(RingPositions positions) {
    const std::scoped_lock lock(mutex_);
    QueueForAll(EventKind::kSent, PositionsText(positions), [&](Delivery& delivery) {
        delivery.action = Delivery::Action::kPositions;
        delivery.positions = positions;
    });
    DeliverAll();
}

void StandInService::DeliverAll() {
    for (auto next = clients_.begin(); next != clients_.end() && !dead_;) {
        const auto current = next++;
        auto& [pid, client] = *current;
        if (!client.queue.empty() && !DeliverTo(pid, client)) {
            Note(EventKind::kProblem, pid, "lost " + PidText(pid));
            clients_.erase(current);
        } else if (client.queue.empty() && !client.registered) {
            clients_.erase(current);
        }
    }
}

bool StandInService::DeliverTo(std::uint32_t processId, Client& client) {
    try {
        // Opened anew each time: a client that comes back under its old id has made a new file.
        const MappedFile region =
            MappedFile::Open(PathIn(options_.runDirectory, ClientRegionFile(processId)));
        if (region.Size() < kMessageRegionBytes) {
            return false;
        }
        const Ring ring(region.Data());
        // What is not yet due is passed over, so that a late confirmation holds up no order.
        for (auto at = client.queue.begin(); at != client.queue.end() && !dead_;) {
            if (at->notBefore > Clock::now()) {
                ++at;
                continue;
            }
            if (Deliver(ring, *at) == Outcome::kBlocked) {
                break;
            }
            const ServiceEvent event = at->event;
            at = client.queue.erase(at);
            Note(event.kind, event.processId, event.text);
            if (event.kind == EventKind::kConfirmed) {
                At(ServiceStep::kConfirm);
            }
        }
        return true;
    } catch (const std::system_error&) {
        // The client has gone without a word; the caller forgets it.
        return false;
    }
}

StandInService::Outcome StandInService::Deliver(const Ring& ring, const Delivery& delivery) {
    switch (delivery.action) {
        case Delivery::Action::kPositions:
            // What was sent before is left to be read first.
            if (!ring.Positions().Empty()) {
                return Outcome::kBlocked;
            }
            ring.SetPositions(delivery.positions);
            return Outcome::kDone;
        case Delivery::Action::kFlood: {
            const Bytes ping = MessageFrame(HeaderRecord(delivery.event.processId, kTypePing));
            const Bytes filler = Frame(0, {});
            while (ring.Append(ping) || ring.Append(filler)) {
            }
            return Outcome::kDone;
        }
        case Delivery::Action::kAppend:
            return AppendFrame(ring, delivery.bytes);
    }
    return Outcome::kDone;
}

StandInService::Outcome StandInService::AppendFrame(const Ring& ring, const Bytes& bytes) {
    const RingPositions positions = ring.Positions();
    // The consumer moves nothing in an empty ring, so its positions may be changed here.
    if (positions.Empty()) {
        RingPositions start = positions.InRange() ? positions : RingPositions{};
        if (options_.split && bytes.size() > 1) {
            const auto inner = static_cast<std::uint32_t>(bytes.size() - 1);
            start.read = kMessageRingCapacity - 1 - splitCount_ % inner;
            start.write = start.read;
        }
        if (start != positions && !ring.Exchange(positions, start)) {
            return Outcome::kBlocked;
        }
    } else if (options_.split) {
        return Outcome::kBlocked;
    }
    if (!ring.Append(bytes)) {
        return Outcome::kBlocked;
    }
    ++splitCount_;
    return Outcome::kDone;
}

bool StandInService::At(ServiceStep step) {
    if (options_.stopAt == step && !stopUsed_) {
        stopUsed_ = true;
        Note(EventKind::kStopped, 0, std::string("stops at ") + StepName(step));
        if (options_.onStop) {
            options_.onStop();
        }
    }
    if (options_.dieAt == step && !dead_) {
        dead_ = true;
        Note(EventKind::kDied, 0, std::string("dies at ") + StepName(step));
        if (options_.onDie) {
            options_.onDie();
        }
    }
    return dead_;
}

void StandInService::Note(EventKind kind, std::uint32_t processId, const std::string& text) {
    events_.push_back({kind, processId, text});
    if (options_.onEvent) {
        options_.onEvent(text);
    }
    changed_.notify_all();
}

std::vector<ServiceEvent> StandInService::Events() const {
    const std::scoped_lock lock(mutex_);
    return events_;
}

std::vector<std::uint32_t> StandInService::RegisteredClients() const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::uint32_t> registered;
    for (const auto& [pid, client] : clients_) {
        if (client.registered) {
            registered.push_back(pid);
        }
    }
    return registered;
}

bool StandInService::WaitForEvent(const std::string& text, std::chrono::milliseconds timeout,
                                  std::size_t count) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] {
        const auto seen =
            std::count_if(events_.begin(), events_.end(),
                          [&](const ServiceEvent& event) { return event.text == text; });
        return static_cast<std::size_t>(seen) >= count;
    });
}

}  // namespace standin
