#include "zyndoctor/DoctorOptions.h"

#include <getopt.h>

#include <array>
#include <iostream>

#include "Support/PrintableText.h"

const char* const kDoctorUsage =
    "Usage: zyn-doctor [OPTION]...\n"
    "Look at what runtime tracing depends on in this environment: the configuration, the\n"
    "logs, the run directory, the service, and what dead processes left behind. Changes\n"
    "nothing. Lines with !! are findings, lines with ?? could not be looked at.\n"
    "\n"
    "  -j, --json      report as one JSON document\n"
    "  -h, --help      show this text and exit\n"
    "  -V, --version   show the version and exit\n"
    "\n"
    "Exit status: 0 nothing wrong found, 1 findings, 2 something could not be looked at.\n";

DoctorOptions ParseDoctorOptions(int argc, char** argv) {
    static constexpr std::array<option, 4> kOptions{{{"json", no_argument, nullptr, 'j'},
                                                     {"help", no_argument, nullptr, 'h'},
                                                     {"version", no_argument, nullptr, 'V'},
                                                     {nullptr, 0, nullptr, 0}}};
    DoctorOptions options;
    for (int letter = 0;
         (letter = getopt_long(argc, argv, "jhV", kOptions.data(), nullptr)) != -1;) {
        options.json |= letter == 'j';
        options.help |= letter == 'h';
        options.version |= letter == 'V';
        options.mistaken |= letter == '?';
    }
    if (optind < argc && !options.mistaken) {
        std::cerr << "zyn-doctor: nothing to be named: '" << MaskedControls(argv[optind]) << "'\n";
        options.mistaken = true;
    }
    return options;
}
