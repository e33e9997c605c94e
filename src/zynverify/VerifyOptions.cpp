#include "zynverify/VerifyOptions.h"

#include <getopt.h>

#include <array>
#include <iostream>

const char* const kVerifyUsage =
    "Usage: zynlog-verify [OPTION]... DIRECTORY|FILE...\n"
    "Tell what in binary trace logs an export would drop, stop at or leave in disorder.\n"
    "The log files of a directory are verified as one log, and so are the files that\n"
    "are named, per directory.\n"
    "\n"
    "  -b, --blocks    report every block, not only the damaged ones\n"
    "  -j, --json      report as one JSON document\n"
    "  -q, --quiet     report nothing, only exit\n"
    "  -s, --separate  verify each file as a log of its own\n"
    "  -h, --help      show this text and exit\n"
    "  -V, --version   show the version and exit\n"
    "\n"
    "Exit status: 0 clean, 1 damage found, 2 something could not be read.\n";

VerifyOptions ParseVerifyOptions(int argc, char** argv) {
    static constexpr std::array<option, 7> kOptions{{{"blocks", no_argument, nullptr, 'b'},
                                                     {"json", no_argument, nullptr, 'j'},
                                                     {"quiet", no_argument, nullptr, 'q'},
                                                     {"separate", no_argument, nullptr, 's'},
                                                     {"help", no_argument, nullptr, 'h'},
                                                     {"version", no_argument, nullptr, 'V'},
                                                     {nullptr, 0, nullptr, 0}}};
    VerifyOptions options;
    for (int letter = 0;
         (letter = getopt_long(argc, argv, "bjqshV", kOptions.data(), nullptr)) != -1;) {
        options.blocks |= letter == 'b';
        options.json |= letter == 'j';
        options.quiet |= letter == 'q';
        options.separate |= letter == 's';
        options.help |= letter == 'h';
        options.version |= letter == 'V';
        options.mistaken |= letter == '?';
    }
    options.paths.assign(argv + optind, argv + argc);
    if (options.paths.empty() && !options.help && !options.version && !options.mistaken) {
        std::cerr << "zynlog-verify: no directory or file given\n";
        options.mistaken = true;
    }
    return options;
}
