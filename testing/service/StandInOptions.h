#ifndef ZYN_TESTING_SERVICE_STANDINOPTIONS_H
#define ZYN_TESTING_SERVICE_STANDINOPTIONS_H

// The command line and the command lines (standard input or FIFO) of zyn-standin-service.

#include <span>
#include <string>
#include <string_view>

#include "testing/service/StandInService.h"

namespace standin {

struct StandInOptions {
    ServiceOptions service;
    int readyFd = -1;       // one byte is written to it when the service is up
    std::string orderFile;  // "-" is standard input, empty is none
    bool help = false;
};

extern const char* const kStandInUsage;

// Throws std::invalid_argument, whose text names the argument that cannot be used.
[[nodiscard]] StandInOptions ParseStandInOptions(std::span<const char* const> arguments);

// Carries out one command line; false for "quit". Throws std::invalid_argument for one that is
// unknown. An empty line is nothing to do.
bool RunServiceCommand(StandInService& service, std::string_view line);

}  // namespace standin

#endif  // ZYN_TESTING_SERVICE_STANDINOPTIONS_H
