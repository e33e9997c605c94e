// Parsing for zyn-standin-service: a table of options, each with the function that stores its
// value.

#include "testing/service/StandInOptions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <stdexcept>

namespace standin {

const char* const kStandInUsage =
    R"(usage: zyn-standin-service --run-dir DIR [options]
Stands in for the tracing service in DIR until SIGTERM, SIGINT or the command "quit".

  --run-dir DIR            directory of the service's files; it must exist
  --ready-fd N             write one byte to descriptor N when the service is up
  --order-file FILE        read commands from a FIFO, or with "-" from standard input:
                           pause resume reload ping "order CODE" "send HEX" "positions R,W" quit
  --ping-every MS          send a ping to every client all MS milliseconds
  --confirm-first          confirm a request before passing the order on, not after it

What is in the directory:
  --pid-text TEXT          content of the pid file instead of this process's id
  --no-lock-file           no ZynService.lck
  --no-seed                no ZynRecordSequenceNumberSeed.map
  --small-region N         server region of N bytes instead of 524

Ways of failing:
  --silent                 answer nothing, pass nothing on
  --confirm-registration-only
                           answer nothing but registrations
  --late MS                confirm MS milliseconds late
  --die-at STEP            end at once, leaving all files: registration, confirm, request, order
                           or unregistration
  --stop-at STEP           stop (SIGSTOP) at the first such step
  --split                  write every frame across the end of the ring

Before each confirmation (--faults-before LIST narrows this to some of
registration,request,unregistration):
  --frames-of-kind N       a frame with header byte N (kind in the low four bits, 32 adds an id)
  --unknown-types          messages of types and change codes nobody knows
  --truncated-message      messages of 0, 4 and 8 bytes
  --long-frame N           a frame that states N bytes
  --flood                  pings until the ring is full
  --bad-positions R,W      these positions in the ring's header
)";

namespace {

using Value = std::string_view;

[[noreturn]] void Reject(Value what, Value value) {
    throw std::invalid_argument(std::string(what) + ": cannot use '" + std::string(value) + "'");
}

std::uint32_t Number(Value what, Value value,
                     std::uint32_t maximum = std::numeric_limits<std::uint32_t>::max()) {
    std::uint32_t number = 0;
    const char* const end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc{} || stop != end || number > maximum) {
        Reject(what, value);
    }
    return number;
}

RingPositions PositionPair(Value what, Value value) {
    const std::size_t comma = value.find(',');
    if (comma == Value::npos) {
        Reject(what, value);
    }
    return {.read = Number(what, value.substr(0, comma)),
            .write = Number(what, value.substr(comma + 1))};
}

ServiceStep Step(Value what, Value value) {
    for (const ServiceStep step :
         {ServiceStep::kRegistration, ServiceStep::kConfirm, ServiceStep::kRequest,
          ServiceStep::kOrder, ServiceStep::kUnregistration}) {
        if (value == StepName(step)) {
            return step;
        }
    }
    Reject(what, value);
}

std::set<Reply> Replies(Value what, Value value) {
    std::set<Reply> replies;
    while (!value.empty()) {
        const Value name = value.substr(0, value.find(','));
        value.remove_prefix(std::min(name.size() + 1, value.size()));
        if (name == "registration") {
            replies.insert(Reply::kRegistration);
        } else if (name == "request") {
            replies.insert(Reply::kRequest);
        } else if (name == "unregistration") {
            replies.insert(Reply::kUnregistration);
        } else {
            Reject(what, name);
        }
    }
    return replies;
}

struct Flag {
    const char* name;
    void (*set)(StandInOptions& options);
};

constexpr std::array kFlags = {
    Flag{"--help", [](StandInOptions& o) { o.help = true; }},
    Flag{"--confirm-first", [](StandInOptions& o) { o.service.confirmFirst = true; }},
    Flag{"--no-lock-file", [](StandInOptions& o) { o.service.lockFile = false; }},
    Flag{"--no-seed", [](StandInOptions& o) { o.service.seedRegion = false; }},
    Flag{"--silent", [](StandInOptions& o) { o.service.silent = true; }},
    Flag{"--confirm-registration-only",
         [](StandInOptions& o) { o.service.confirmRegistrationOnly = true; }},
    Flag{"--split", [](StandInOptions& o) { o.service.split = true; }},
    Flag{"--unknown-types", [](StandInOptions& o) { o.service.unknownTypes = true; }},
    Flag{"--truncated-message", [](StandInOptions& o) { o.service.truncatedMessages = true; }},
    Flag{"--flood", [](StandInOptions& o) { o.service.flood = true; }},
};

struct Setting {
    const char* name;
    void (*set)(StandInOptions& options, Value name, Value value);
};

constexpr std::array kSettings = {
    Setting{"--run-dir",
            [](StandInOptions& o, Value, Value value) { o.service.runDirectory = value; }},
    Setting{"--ready-fd",
            [](StandInOptions& o, Value name, Value value) {
                o.readyFd = static_cast<int>(Number(
                    name, value, static_cast<std::uint32_t>(std::numeric_limits<int>::max())));
            }},
    Setting{"--order-file", [](StandInOptions& o, Value, Value value) { o.orderFile = value; }},
    Setting{"--ping-every",
            [](StandInOptions& o, Value name, Value value) {
                o.service.pingPeriod = std::chrono::milliseconds(Number(name, value));
            }},
    Setting{"--pid-text", [](StandInOptions& o, Value, Value value) { o.service.pidText = value; }},
    Setting{"--small-region",
            [](StandInOptions& o, Value name, Value value) {
                o.service.serverRegionBytes = Number(name, value);
            }},
    Setting{"--late",
            [](StandInOptions& o, Value name, Value value) {
                o.service.confirmationDelay = std::chrono::milliseconds(Number(name, value));
            }},
    Setting{"--die-at", [](StandInOptions& o, Value name,
                           Value value) { o.service.dieAt = Step(name, value); }},
    Setting{"--stop-at", [](StandInOptions& o, Value name,
                            Value value) { o.service.stopAt = Step(name, value); }},
    Setting{"--faults-before", [](StandInOptions& o, Value name,
                                  Value value) { o.service.faultsBefore = Replies(name, value); }},
    Setting{"--frames-of-kind",
            [](StandInOptions& o, Value name, Value value) {
                o.service.extraFrameHeader = static_cast<std::uint8_t>(Number(name, value, 255));
            }},
    Setting{"--long-frame", [](StandInOptions& o, Value name,
                               Value value) { o.service.longFrameBytes = Number(name, value); }},
    Setting{"--bad-positions",
            [](StandInOptions& o, Value name, Value value) {
                o.service.badPositions = PositionPair(name, value);
            }},
};

Bytes FromHex(Value what, Value text) {
    if (text.empty() || text.size() % 2 != 0) {
        Reject(what, text);
    }
    Bytes bytes;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        std::uint8_t byte = 0;
        const char* const end = text.data() + at + 2;
        const auto [stop, error] = std::from_chars(text.data() + at, end, byte, 16);
        if (error != std::errc{} || stop != end) {
            Reject(what, text);
        }
        bytes.push_back(byte);
    }
    return bytes;
}

}  // namespace

StandInOptions ParseStandInOptions(std::span<const char* const> arguments) {
    StandInOptions options;
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const Value name = arguments[at];
        bool known = false;
        for (const Flag& flag : kFlags) {
            if (name == flag.name) {
                flag.set(options);
                known = true;
            }
        }
        for (const Setting& setting : kSettings) {
            if (name == setting.name) {
                if (++at == arguments.size()) {
                    throw std::invalid_argument(std::string(name) + ": a value is missing");
                }
                setting.set(options, name, arguments[at]);
                known = true;
            }
        }
        if (!known) {
            throw std::invalid_argument("unknown option '" + std::string(name) + "'");
        }
    }
    if (options.service.runDirectory.empty() && !options.help) {
        throw std::invalid_argument("--run-dir is missing");
    }
    return options;
}

bool RunServiceCommand(StandInService& service, std::string_view line) {
    const std::size_t blank = line.find(' ');
    const Value command = line.substr(0, blank);
    const Value value = blank == Value::npos ? Value() : line.substr(blank + 1);
    if (command == "quit") {
        return false;
    }
    if (command == "pause") {
        service.Order(kChangePause);
    } else if (command == "resume") {
        service.Order(kChangeResume);
    } else if (command == "reload") {
        service.Order(kChangeReload);
    } else if (command == "ping") {
        service.Ping();
    } else if (command == "order") {
        service.Order(Number(command, value));
    } else if (command == "send") {
        service.Send(FromHex(command, value));
    } else if (command == "positions") {
        service.SetPositions(PositionPair(command, value));
    } else if (!command.empty()) {
        throw std::invalid_argument("unknown command '" + std::string(line) + "'");
    }
    return true;
}

}  // namespace standin
