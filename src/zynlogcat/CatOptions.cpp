#include "zynlogcat/CatOptions.h"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <utility>

#include "zynlogcat/DecimalNumber.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/TimeParser.h"

const char* const kCatUsage =
    "Usage: zynlog-cat [OPTION]... [LOG]...\n"
    "Show the records of binary trace logs: of a directory, of a file, or with - of\n"
    "standard input; of the configured log directory when none is named. Logs that\n"
    "are compressed with gzip or zstd are read as they are.\n"
    "\n"
    "Which records (kinds of conditions are joined by \"and\", several of one kind by\n"
    "\"or\"):\n"
    "  -S, --since TIME       from this time on\n"
    "  -U, --until TIME       before this time\n"
    "  -m, --module PATTERN   of modules that match a shell pattern; so do\n"
    "  -c, --client PATTERN\n"
    "  -l, --label PATTERN\n"
    "      --host PATTERN\n"
    "  -p, --pid NUMBER       of this process\n"
    "  -t, --tid NUMBER       of this thread\n"
    "  -g, --grep REGEX       whose message matches a regular expression (RE2)\n"
    "  -i, --ignore-case      with -g: whatever the case of letters\n"
    "  -n, --lines N          the last N of those\n"
    "\n"
    "How:\n"
    "  -o, --output FORM      columns (default), short, json, csv, count, count-json\n"
    "                         or timeline\n"
    "      --no-header        without the header of columns and csv\n"
    "      --color WHEN       colours of short: auto (default), always or never\n"
    "      --utc              read and show times in UTC\n"
    "      --begin-label NAME label of records that begin a slice of a timeline\n"
    "      --end-label NAME   and of those that end one (Entry and Exit)\n"
    "      --merge            by time over all logs and writers\n"
    "  -f, --follow           go on with what is written\n"
    "      --cursor-file FILE begin behind what the run before has read\n"
    "      --live             an unfinished last block is no damage\n"
    "      --quiet            say nothing of damage\n"
    "  -h, --help             show this text and exit\n"
    "  -V, --version          show the version and exit\n"
    "\n"
    "TIME: 2023-11-14, '2023-11-14 10:00[:05[.250]]' (or with a T), 10:00[:05], now,\n"
    "today, yesterday, -90s, -15min, -2h, -3d, @1700000000[.250]; Z or +01:00 may\n"
    "follow a clock time.\n"
    "\n"
    "Exit status: 0 well, 1 something is damaged, 2 something could not be read.\n";

namespace {

// Options without a letter.
enum LongOption : int {
    kOperand = 1,  // as getopt_long has it
    kHost = 256,
    kNoHeader,
    kColor,
    kUtc,
    kBeginLabel,
    kEndLabel,
    kMerge,
    kCursorFile,
    kLive,
    kQuiet,
};

// The leading dash hands operands over in their place, so that they may stand anywhere whatever the
// environment says.
constexpr const char* kLetters = "-S:U:m:c:l:p:t:g:in:o:fhV";

constexpr std::array<option, 25> kOptions{{{"since", required_argument, nullptr, 'S'},
                                           {"until", required_argument, nullptr, 'U'},
                                           {"module", required_argument, nullptr, 'm'},
                                           {"client", required_argument, nullptr, 'c'},
                                           {"label", required_argument, nullptr, 'l'},
                                           {"host", required_argument, nullptr, kHost},
                                           {"pid", required_argument, nullptr, 'p'},
                                           {"tid", required_argument, nullptr, 't'},
                                           {"grep", required_argument, nullptr, 'g'},
                                           {"ignore-case", no_argument, nullptr, 'i'},
                                           {"lines", required_argument, nullptr, 'n'},
                                           {"output", required_argument, nullptr, 'o'},
                                           {"no-header", no_argument, nullptr, kNoHeader},
                                           {"color", required_argument, nullptr, kColor},
                                           {"utc", no_argument, nullptr, kUtc},
                                           {"begin-label", required_argument, nullptr, kBeginLabel},
                                           {"end-label", required_argument, nullptr, kEndLabel},
                                           {"merge", no_argument, nullptr, kMerge},
                                           {"follow", no_argument, nullptr, 'f'},
                                           {"cursor-file", required_argument, nullptr, kCursorFile},
                                           {"live", no_argument, nullptr, kLive},
                                           {"quiet", no_argument, nullptr, kQuiet},
                                           {"help", no_argument, nullptr, 'h'},
                                           {"version", no_argument, nullptr, 'V'},
                                           {nullptr, 0, nullptr, 0}}};

std::uint32_t Number(std::string_view option, std::string_view text) {
    const auto number = DecimalNumber(text);
    if (!number) {
        throw CatUsageError(std::string(option) + ": not a number from 0 to 4294967295: '" +
                            std::string(text) + "'");
    }
    return *number;
}

ColorMode Color(std::string_view text) {
    if (text == "auto") {
        return ColorMode::kAuto;
    }
    if (text == "always") {
        return ColorMode::kAlways;
    }
    if (text == "never") {
        return ColorMode::kNever;
    }
    throw CatUsageError("--color: not auto, always or never: '" + std::string(text) + "'");
}

std::string Form(const std::string& text) {
    if (FindForm(text) == nullptr) {
        throw CatUsageError("--output: not one of " + FormNames() + ": '" + text + "'");
    }
    return text;
}

// Times as they were typed: the zone in which they are meant may be named behind them.
struct TypedTimes {
    std::vector<std::string> since;
    std::vector<std::string> until;
};

// An option that selects records; false when it is none of these.
bool TakeCondition(int letter, const std::string& value, Conditions& conditions,
                   TypedTimes& times) {
    switch (letter) {
        case 'S':
            times.since.push_back(value);
            return true;
        case 'U':
            times.until.push_back(value);
            return true;
        case 'm':
            conditions.modules.push_back(value);
            return true;
        case 'c':
            conditions.clients.push_back(value);
            return true;
        case 'l':
            conditions.labels.push_back(value);
            return true;
        case kHost:
            conditions.hosts.push_back(value);
            return true;
        case 'p':
            conditions.processes.push_back(Number("--pid", value));
            return true;
        case 't':
            conditions.threads.push_back(Number("--tid", value));
            return true;
        case 'g':
            conditions.expressions.push_back(value);
            return true;
        case 'i':
            conditions.ignoreCase = true;
            return true;
        default:
            return false;
    }
}

// An option with a value that says how records are shown.
void TakeValue(int letter, const std::string& value, CatOptions& options) {
    switch (letter) {
        case 'n':
            options.lines = Number("--lines", value);
            break;
        case 'o':
            options.form = Form(value);
            break;
        case kColor:
            options.color = Color(value);
            break;
        case kBeginLabel:
            options.beginLabel = value;
            break;
        case kEndLabel:
            options.endLabel = value;
            break;
        case kCursorFile:
            if (value.empty()) {
                throw CatUsageError("--cursor-file: no name given");
            }
            options.cursorFile = value;
            break;
        default:
            options.logs.push_back(value);
            break;
    }
}

// A switch; false when it is none.
bool TakeSwitch(int letter, CatOptions& options) {
    const std::array<std::pair<int, bool*>, 7> switches{{{kUtc, &options.utc},
                                                         {kMerge, &options.merge},
                                                         {'f', &options.follow},
                                                         {kLive, &options.live},
                                                         {kQuiet, &options.quiet},
                                                         {'h', &options.help},
                                                         {'V', &options.version}}};
    if (letter == kNoHeader) {
        options.header = false;
        return true;
    }
    const auto* const found =
        std::find_if(switches.begin(), switches.end(),
                     [letter](const auto& entry) { return entry.first == letter; });
    if (found == switches.end()) {
        return false;
    }
    *found->second = true;
    return true;
}

// Of several the last counts, but none may be wrong.
std::optional<std::int64_t> LastTime(std::string_view option, const std::vector<std::string>& texts,
                                     const TimeParser& parser) {
    std::optional<std::int64_t> time;
    for (const std::string& text : texts) {
        time = parser.Parse(text);
        if (!time) {
            throw CatUsageError(std::string(option) + ": no such time: '" + text + "'");
        }
    }
    return time;
}

std::int64_t Now() {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void Refuse(bool mistaken, const char* text) {
    if (mistaken) {
        throw CatUsageError(text);
    }
}

// What getopt_long itself would say; it does not mask what it repeats, and names the program by its
// path.
std::string Mistake(const char* word) {
    if (optopt == 0) {
        return std::string("unrecognized option '") + word + "'";
    }
    const auto* const known =
        std::find_if(kOptions.begin(), kOptions.end() - 1,
                     [](const option& candidate) { return candidate.val == optopt; });
    if (known == kOptions.end() - 1) {
        return std::string("invalid option -- '") + static_cast<char>(optopt) + "'";
    }
    return std::string("option '--") + known->name +
           (known->has_arg == required_argument ? "' takes a value" : "' takes no value");
}

void CheckTogether(const CatOptions& options) {
    const auto inputs = std::count(options.logs.begin(), options.logs.end(), "-");
    Refuse(inputs > 1, "standard input can be read once only");
    if (options.follow) {
        Refuse(inputs != 0, "--follow: standard input cannot be followed");
        Refuse(options.merge, "--follow and --merge do not go together");
        if (!FindForm(options.form)->immediate) {
            throw CatUsageError("--follow: the output " + options.form + " has an end");
        }
    }
    if (!options.cursorFile.empty()) {
        Refuse(options.logs.size() > 1, "--cursor-file: more than one log");
        Refuse(inputs != 0, "--cursor-file: standard input has no place to come back to");
        Refuse(options.merge, "--cursor-file and --merge do not go together");
        Refuse(options.lines.has_value(), "--cursor-file and --lines do not go together");
    }
}

}  // namespace

CatOptions ParseCatOptions(int argc, char** argv) {
    CatOptions options;
    TypedTimes times;
    optind = 0;  // tests parse more than once
    opterr = 0;
    for (int letter = 0;
         (letter = getopt_long(argc, argv, kLetters, kOptions.data(), nullptr)) != -1;) {
        const std::string value = optarg != nullptr ? optarg : "";
        if (letter == '?') {
            throw CatUsageError(Mistake(argv[optind - 1]));
        }
        if (!TakeCondition(letter, value, options.conditions, times) &&
            !TakeSwitch(letter, options)) {
            TakeValue(letter, value, options);
        }
    }
    options.logs.insert(options.logs.end(), argv + std::min(optind, argc), argv + argc);
    if (options.help || options.version) {
        return options;
    }
    if (options.utc) {
        setenv("TZ", "UTC0", 1);
        tzset();
    }
    const TimeParser parser(Now());
    options.conditions.since = LastTime("--since", times.since, parser);
    options.conditions.until = LastTime("--until", times.until, parser);
    CheckTogether(options);
    return options;
}
