#include "zynverify/VerifyOptions.h"

#include <getopt.h>

#include <array>

#include "zynverify/Joined.h"

const char* const kVerifyUsage =
    "Usage: zynlog-verify [OPTION]... DIRECTORY|FILE...\n"
    "  or:  zynlog-verify [-jq] --salvage NEW_DIRECTORY DIRECTORY|FILE\n"
    "Tell what in binary trace logs an export would drop, stop at or leave in disorder.\n"
    "The log files of a directory are verified as one log, and so are the files that\n"
    "are named, per directory. The FILE - is the standard input.\n"
    "\n"
    "  -b, --blocks    report every block, not only the damaged ones\n"
    "  -j, --json      report as one JSON document\n"
    "  -l, --live      the newest file may end within a block: it is being written\n"
    "  -q, --quiet     report nothing, only exit\n"
    "  -s, --separate  verify each file as a log of its own\n"
    "      --salvage NEW_DIRECTORY\n"
    "                  copy what is good of a damaged log into a directory that is new or\n"
    "                  empty, and report what was kept and what was skipped\n"
    "  -h, --help      show this text and exit\n"
    "  -V, --version   show the version and exit\n"
    "\n"
    "Exit status: 0 clean, 1 damage found, 2 something could not be read.\n";

namespace {

// Beyond all letters.
constexpr int kSalvage = 256;

// What getopt_long itself would say; it does not mask what it repeats.
std::string Mistake(char** argv) {
    if (optopt == kSalvage) {
        return "option '--salvage' takes a directory";
    }
    if (optopt == 0) {
        return Joined("unrecognized option '", argv[optind - 1], "'");
    }
    // An option that is known has been given a value.
    if (std::string("bjlqshV").find(static_cast<char>(optopt)) != std::string::npos) {
        return Joined("option '", argv[optind - 1], "' takes no value");
    }
    return Joined("invalid option -- '", static_cast<char>(optopt), "'");
}

}  // namespace

VerifyOptions ParseVerifyOptions(int argc, char** argv) {
    static constexpr std::array<option, 9> kOptions{
        {{"blocks", no_argument, nullptr, 'b'},
         {"json", no_argument, nullptr, 'j'},
         {"live", no_argument, nullptr, 'l'},
         {"quiet", no_argument, nullptr, 'q'},
         {"separate", no_argument, nullptr, 's'},
         {"salvage", required_argument, nullptr, kSalvage},
         {"help", no_argument, nullptr, 'h'},
         {"version", no_argument, nullptr, 'V'},
         {nullptr, 0, nullptr, 0}}};
    VerifyOptions options;
    opterr = 0;
    for (int letter = 0;
         (letter = getopt_long(argc, argv, "bjlqshV", kOptions.data(), nullptr)) != -1;) {
        options.blocks |= letter == 'b';
        options.json |= letter == 'j';
        options.live |= letter == 'l';
        options.quiet |= letter == 'q';
        options.separate |= letter == 's';
        options.help |= letter == 'h';
        options.version |= letter == 'V';
        if (letter == kSalvage) {
            options.salvage = optarg;
        }
        if (letter == '?' && options.mistake.empty()) {
            options.mistake = Mistake(argv);
        }
    }
    options.paths.assign(argv + optind, argv + argc);
    if (options.paths.empty() && !options.help && !options.version && options.mistake.empty()) {
        options.mistake = "no directory or file given";
    }
    if (options.salvage && options.mistake.empty()) {
        if (options.paths.size() > 1) {
            options.mistake = "--salvage takes one log";
        } else if (options.blocks || options.live || options.separate) {
            options.mistake = "of the other options --salvage takes --json and --quiet only";
        }
    }
    return options;
}
