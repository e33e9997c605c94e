#include "zyntool/PerformanceCommandProcessor.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

void PerformanceCommandProcessor::Process(CommandLineParser::CommandOptions& options) {
    const std::string& period = std::as_const(options)["T"];
    static_cast<void>(std::strtol(period.c_str(), nullptr, 10));
    constexpr std::string_view kText = "Collecting function usage performance number...\n";
    static_cast<void>(std::fwrite(kText.data(), 1, kText.size(), stderr));
}
