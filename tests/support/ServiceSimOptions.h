#ifndef ZYN_TESTS_SUPPORT_SERVICESIMOPTIONS_H
#define ZYN_TESTS_SUPPORT_SERVICESIMOPTIONS_H

// The command line and the command lines (standard input or FIFO) of zynservice-sim.

#include <span>
#include <string>
#include <string_view>

#include "support/StandInService.h"

namespace standin {

struct ServiceSimOptions {
    ServiceOptions service;
    int readyFd = -1;       // one byte is written to it when the service is up
    std::string orderFile;  // "-" is standard input, empty is none
    bool help = false;
};

extern const char* const kServiceSimUsage;

// Throws std::invalid_argument, whose text names the argument that cannot be used.
[[nodiscard]] ServiceSimOptions ParseServiceSimOptions(std::span<const char* const> arguments);

// Carries out one command line; false for "quit". Throws std::invalid_argument for one that is
// unknown. An empty line is nothing to do.
bool RunServiceCommand(StandInService& service, std::string_view line);

}  // namespace standin

#endif  // ZYN_TESTS_SUPPORT_SERVICESIMOPTIONS_H
