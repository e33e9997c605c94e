#include "zyntool/ControlCommandProcessors.h"

#include <iostream>
#include <stdexcept>
#include <string>

#include "ZynANSIAPI/ZynANSIAPI.h"

namespace {

void RunRequest(int (*request)() noexcept, const std::string& announcement,
                const std::string& failure) {
    std::cout << announcement << std::flush;
    if (request() != 0) {
        throw std::runtime_error(failure);
    }
    std::cout << "succeeded.\n" << std::flush;
}

}  // namespace

// Kept as is, here and below: wording, spacing and line feeds are what scripts wait for.
void PauseCommandProcessor::Process(CommandLineParser::CommandOptions& /*options*/) {
    RunRequest(ZynPause, "Pause tracing... ", "Pause Tracing...Failed \n");
}

void ResumeCommandProcessor::Process(CommandLineParser::CommandOptions& /*options*/) {
    RunRequest(ZynResume, "Resume tracing... ", "Resume Tracing Failed \n");
}

void ReloadCommandProcessor::Process(CommandLineParser::CommandOptions& /*options*/) {
    RunRequest(ZynReloadConfig, "Reloading configuration... ", "Reloading Configuration Failed");
}

void PreservationCommandProcessor::Process(CommandLineParser::CommandOptions& options) {
    const bool activate = options.contains("ON");
    const std::string announcement =
        activate ? "Activating preservation mode... " : "Deactivating preservation mode ...";
    RunRequest(activate ? ZynPreservationOn : ZynPreservationOff, announcement,
               announcement + " Failed");
}
