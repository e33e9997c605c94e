// The words of generated logs (see LogVocabulary.h).

#include "testing/logs/LogVocabulary.h"

#include <array>
#include <charconv>

namespace {

constexpr std::array kModules = {
    "Dispatcher",   "SessionMgr",    "LinkMonitor", "RouteTable",     "PolicyStore", "KeyExchange",
    "TunnelDriver", "AddressPool",   "CertChecker", "EventQueue",     "TimerWheel",  "ConfigLoader",
    "PacketFilter", "LeaseKeeper",   "SpoolWriter", "IndexBuilder",   "HealthProbe", "JobScheduler",
    "QuotaKeeper",  "NameResolver",  "BackupAgent", "StatsCollector", "PortMapper",  "LockManager",
    "Accounting",   "MessageRouter", "DiskWatcher", "ReplicaSync"};

constexpr std::array kClients = {
    "acceptor",  "reader",      "writer",    "main-loop",  "poll-thread", "housekeeper", "watchdog",
    "resolver",  "signer",      "worker-01", "worker-02",  "worker-03",   "worker-04",   "flusher",
    "compactor", "retry-queue", "upstream",  "downstream", "admin-port",  "heartbeat"};

// As often as they stand here.
constexpr std::array kLabels = {"Info",    "Info",   "Info",  "Info",   "Info",   "Debug", "Debug",
                                "Debug",   "Entry",  "Entry", "Exit",   "Exit",   "State", "State",
                                "Warning", "Timing", "Error", "Detail", "Packet", "Memory"};

constexpr std::array kObjects = {"session", "request", "lease",   "route", "tunnel", "certificate",
                                 "policy",  "replica", "segment", "timer", "socket", "transaction"};

constexpr std::array kStates = {"ready",   "waiting",  "closing", "idle",     "established",
                                "expired", "degraded", "standby", "draining", "suspended"};

// %d a number, %s a small one, %x eight hexadecimal digits, %a an address, %o an object, %t a
// state.
constexpr std::array kClauses = {
    "accepted connection %d from %a port %d",
    "%o %x is now %t",
    "%o %x changed from %t to %t",
    "read %d bytes in %s calls, %d left in the queue",
    "no answer from %a after %s attempts, next in %d ms",
    "%o table holds %d entries, %s of them %t",
    "renewed %o %x for %d seconds",
    "dropped %s packets for %a, reason code %s",
    "checkpoint %d written in %s ms",
    "queue depth %d, high-water mark %d",
    "peer %a reports sequence %d, expected %d",
    "allocated %d bytes at 0x%x for %o %d",
    "handler for %o returned %s after %d us",
    "configuration generation %d applied to %s workers",
    "lookup of host-%d.example took %s ms, answer %a",
    "released %o %x held for %d ms",
    "retry %s for %o %d, still %t",
    "timer %d fired %s ms late",
};

constexpr std::string_view kNamePadding = "-service-process";

void AppendNumber(std::string& text, std::uint32_t number) {
    std::array<char, 10> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    text.append(digits.data(), end.ptr);
}

void AppendHex(std::string& text, std::uint32_t number) {
    for (int shift = 28; shift >= 0; shift -= 4) {
        text.push_back("0123456789abcdef"[(number >> shift) & 0xFU]);
    }
}

void AppendAddress(std::string& text, LogRandom& random) {
    const auto number = static_cast<std::uint32_t>(random.Next() >> 32);
    text += "10.";
    AppendNumber(text, (number >> 16) & 0xFFU);
    text.push_back('.');
    AppendNumber(text, (number >> 8) & 0xFFU);
    text.push_back('.');
    AppendNumber(text, number & 0xFFU);
}

template <std::size_t count>
std::string_view Pick(LogRandom& random, const std::array<const char*, count>& words) {
    return words[random.Below(count)];
}

void AppendPlaceholder(std::string& text, LogRandom& random, char kind) {
    switch (kind) {
        case 'd':
            AppendNumber(text, random.Below(100000));
            break;
        case 's':
            AppendNumber(text, random.Below(64));
            break;
        case 'x':
            AppendHex(text, static_cast<std::uint32_t>(random.Next() >> 32));
            break;
        case 'a':
            AppendAddress(text, random);
            break;
        case 'o':
            text += Pick(random, kObjects);
            break;
        default:
            text += Pick(random, kStates);
            break;
    }
}

void AppendClause(std::string& text, LogRandom& random) {
    std::string_view clause = Pick(random, kClauses);
    for (;;) {
        const std::size_t mark = clause.find('%');
        text += clause.substr(0, mark);
        if (mark == std::string_view::npos) {
            return;
        }
        AppendPlaceholder(text, random, clause[mark + 1]);
        clause.remove_prefix(mark + 2);
    }
}

// Lengthens the text to `length`.
void AppendDump(std::string& text, LogRandom& random, std::size_t length) {
    text += " [";
    while (text.size() + 1 < length) {
        AppendHex(text, static_cast<std::uint32_t>(random.Next() >> 32));
    }
    text.resize(length - 1);
    text.push_back(']');
}

template <std::size_t count>
std::vector<std::string> FittedNames(const std::array<const char*, count>& words, std::size_t least,
                                     std::size_t most) {
    std::vector<std::string> names;
    for (std::string name : words) {
        while (name.size() < least) {
            name += kNamePadding;
            if (name.size() > least) {
                name.resize(least);
            }
        }
        if (name.size() > most) {
            name.resize(most);
        }
        names.push_back(name);
    }
    return names;
}

}  // namespace

std::vector<std::string> LogModuleNames(std::size_t least, std::size_t most) {
    return FittedNames(kModules, least, most);
}

std::vector<std::string> LogClientNames(std::size_t least, std::size_t most) {
    return FittedNames(kClients, least, most);
}

std::string_view PickLogLabel(LogRandom& random) { return Pick(random, kLabels); }

void MakeLogMessage(LogRandom& random, std::size_t length, bool multiline, std::string& text) {
    const std::string_view joint = multiline ? "\n" : "; ";
    text.clear();
    std::size_t whole = 0;  // the clauses that fit
    while (text.size() < length) {
        if (!text.empty()) {
            whole = text.size();
            text += joint;
        }
        AppendClause(text, random);
    }
    if (whole > 0 && text.size() > length) {
        // Rather than with half a clause, a message ends with a few bytes of what it is about.
        text.resize(whole);
        AppendDump(text, random, length);
    }
    text.resize(length);
    if (multiline && length > 0) {
        text.back() = '\n';
    }
}
