// zynloggen: writes a realistic binary trace log of any size, the same for the same options on
// every machine. Samples, tests and benchmarks are made from it; it is not installed.

#include <getopt.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "testing/logs/LogGenerator.h"

namespace {

constexpr int kUsageStatus = 2;

constexpr std::string_view kUsage =
    R"(usage: zynloggen --out DIR [option]...
Writes a trace log as zynlog-0001.txt and so on into DIR.

      --out DIR               directory of the files; made when missing
      --replace               remove the log files that are there; else they are an error
      --records N             number of records (1000)
      --files M               number of files (1)
      --seed S                the same seed gives the same bytes (1)
      --order ORDER           sequence numbers within a block: in-order, window or shuffled
                              (in-order)
      --window W              records that are shuffled among each other by window (64)
      --block-bytes MIN-MAX   room of a block, bytes of record data (40000-60000)
      --message MIN-MAX       length of a message, bytes (20-400)
      --names MIN-MAX         length of module and client names, bytes (6-16)
      --control-percent P     records with a control message (1)
      --multiline-percent P   messages of several lines (3)
      --no-time-percent P     records without a time packet (0)
      --step-us N             log time from record to record, microseconds (500)
      --one-per-second        the same as --step-us 1000000
      --start-time S          time of the first record, seconds since 1970 UTC (1700000000)
      --packets ORDER         packets of a record: t time, T thread, p process, m module, c client,
                              l label, M message, 0 to 8, b, s and v packets without a meaning;
                              several orders with commas between them, random for another one with
                              each record, writer for another one with each writer (tTpmclM)
      --extra-percent P       records with packets that repeat or mean nothing (0)
      --calls                 calls of functions that nest, overlap over threads and processes, and
                              some of whose ends are missing, instead of all other messages
      --span                  let blocks run on from file to file
      --help                  this text
)";

class UsageError : public std::invalid_argument {
  public:
    using std::invalid_argument::invalid_argument;
};

struct Arguments {
    LogGeneratorOptions log;
    std::string directory;
    bool replace = false;
    bool help = false;
};

enum Option : int {
    kOut = 256,
    kReplace,
    kRecords,
    kFiles,
    kSeed,
    kOrder,
    kWindow,
    kBlockBytes,
    kMessage,
    kNames,
    kControlPercent,
    kMultilinePercent,
    kNoTimePercent,
    kStepUs,
    kOnePerSecond,
    kStartTime,
    kPackets,
    kExtraPercent,
    kCalls,
    kSpan,
    kHelp,
};

constexpr std::array kOptions = {
    option{"out", required_argument, nullptr, kOut},
    option{"replace", no_argument, nullptr, kReplace},
    option{"records", required_argument, nullptr, kRecords},
    option{"files", required_argument, nullptr, kFiles},
    option{"seed", required_argument, nullptr, kSeed},
    option{"order", required_argument, nullptr, kOrder},
    option{"window", required_argument, nullptr, kWindow},
    option{"block-bytes", required_argument, nullptr, kBlockBytes},
    option{"message", required_argument, nullptr, kMessage},
    option{"names", required_argument, nullptr, kNames},
    option{"control-percent", required_argument, nullptr, kControlPercent},
    option{"multiline-percent", required_argument, nullptr, kMultilinePercent},
    option{"no-time-percent", required_argument, nullptr, kNoTimePercent},
    option{"step-us", required_argument, nullptr, kStepUs},
    option{"one-per-second", no_argument, nullptr, kOnePerSecond},
    option{"start-time", required_argument, nullptr, kStartTime},
    option{"packets", required_argument, nullptr, kPackets},
    option{"extra-percent", required_argument, nullptr, kExtraPercent},
    option{"calls", no_argument, nullptr, kCalls},
    option{"span", no_argument, nullptr, kSpan},
    option{"help", no_argument, nullptr, kHelp},
    option{nullptr, 0, nullptr, 0},
};

template <typename Number>
Number ParseNumber(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw UsageError("not a number, or too large: '" + std::string(text) + "'");
    }
    return number;
}

LogRange ParseRange(std::string_view text) {
    const std::size_t dash = text.find('-');
    if (dash == std::string_view::npos) {
        throw UsageError("not of the form MIN-MAX: '" + std::string(text) + "'");
    }
    return {ParseNumber<std::uint32_t>(text.substr(0, dash)),
            ParseNumber<std::uint32_t>(text.substr(dash + 1))};
}

LogOrder ParseOrder(std::string_view text) {
    if (text == "in-order") {
        return LogOrder::kInOrder;
    }
    if (text == "window") {
        return LogOrder::kWindow;
    }
    if (text == "shuffled") {
        return LogOrder::kShuffled;
    }
    throw UsageError("not an order: '" + std::string(text) + "'");
}

// One option that says what the log is; false when it is none of these.
bool ParseLogOption(int name, std::string_view value, LogGeneratorOptions& log) {
    switch (name) {
        case kRecords:
            log.records = ParseNumber<std::uint32_t>(value);
            return true;
        case kFiles:
            log.files = ParseNumber<std::uint32_t>(value);
            return true;
        case kSeed:
            log.seed = ParseNumber<std::uint64_t>(value);
            return true;
        case kOrder:
            log.order = ParseOrder(value);
            return true;
        case kWindow:
            log.window = ParseNumber<std::uint32_t>(value);
            return true;
        case kBlockBytes:
            log.blockBytes = ParseRange(value);
            return true;
        case kMessage:
            log.messageBytes = ParseRange(value);
            return true;
        case kNames:
            log.nameBytes = ParseRange(value);
            return true;
        case kControlPercent:
            log.controlPercent = ParseNumber<std::uint32_t>(value);
            return true;
        case kMultilinePercent:
            log.multilinePercent = ParseNumber<std::uint32_t>(value);
            return true;
        case kNoTimePercent:
            log.noTimePercent = ParseNumber<std::uint32_t>(value);
            return true;
        case kStepUs:
            log.stepUs = ParseNumber<std::uint64_t>(value);
            return true;
        case kOnePerSecond:
            log.stepUs = 1000000;
            return true;
        case kPackets:
            log.packets = value;
            return true;
        case kExtraPercent:
            log.extraPercent = ParseNumber<std::uint32_t>(value);
            return true;
        case kStartTime:
            log.startTime = ParseNumber<std::uint32_t>(value);
            return true;
        case kCalls:
            log.calls = true;
            return true;
        case kSpan:
            log.span = true;
            return true;
        default:
            return false;
    }
}

Arguments ParseArguments(int argc, char** argv) {
    Arguments arguments;
    opterr = 0;
    for (;;) {
        const int index = optind;
        const int name = getopt_long(argc, argv, "", kOptions.data(), nullptr);
        if (name == -1) {
            break;
        }
        const std::string_view value = optarg != nullptr ? optarg : "";
        if (name == kOut) {
            arguments.directory = value;
        } else if (name == kReplace) {
            arguments.replace = true;
        } else if (name == kHelp) {
            arguments.help = true;
        } else if (!ParseLogOption(name, value, arguments.log)) {
            throw UsageError("unknown option, or its value is missing or too much: '" +
                             std::string(argv[index]) + "'");
        }
    }
    if (arguments.help) {
        return arguments;
    }
    if (optind < argc) {
        throw UsageError("not an option: '" + std::string(argv[optind]) + "'");
    }
    if (arguments.directory.empty()) {
        throw UsageError("--out is missing");
    }
    try {
        CheckLogGeneratorOptions(arguments.log);
    } catch (const std::invalid_argument& e) {
        throw UsageError(e.what());
    }
    return arguments;
}

// Log files left from another run would be read as a part of the new log.
void ClearDirectory(const Arguments& arguments) {
    std::filesystem::create_directories(arguments.directory);
    std::vector<std::filesystem::path> present;
    for (const auto& entry : std::filesystem::directory_iterator(arguments.directory)) {
        if (entry.path().filename().string().starts_with("zynlog-")) {
            present.push_back(entry.path());
        }
    }
    if (!present.empty() && !arguments.replace) {
        throw std::runtime_error(arguments.directory + " holds log files already; see --replace");
    }
    for (const std::filesystem::path& path : present) {
        std::filesystem::remove(path);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Arguments arguments = ParseArguments(argc, argv);
        if (arguments.help) {
            std::cout << kUsage;
            return 0;
        }
        ClearDirectory(arguments);
        const std::uint64_t bytes = WriteGeneratedLog(arguments.log, arguments.directory);
        std::cout << arguments.log.records << " records, " << arguments.log.files << " files, "
                  << bytes << " bytes\n";
        return 0;
    } catch (const UsageError& e) {
        std::cerr << "zynloggen: " << e.what() << "\nTry 'zynloggen --help'.\n";
        return kUsageStatus;
    } catch (const std::exception& e) {
        std::cerr << "zynloggen: " << e.what() << "\n";
        return 1;
    }
}
