#include "zyntool/TestCommandProcessor.h"

#include <iostream>
#include <string>

#include "ZynANSIAPI/ZynANSIAPI.h"

namespace {

constexpr unsigned int kTestClient = 1;

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

}  // namespace

void TestCommandProcessor::Process(CommandLineParser::CommandOptions& options) {
    const auto module = options.find("M");
    const auto label = options.find("L");
    const auto client = options.find("C");
    if (module == options.end() || label == options.end()) {
        return;
    }
    const std::string moduleName = Quoted(module->second);
    const std::string labelName = Quoted(label->second);

    int moduleHandle = -1;
    static_cast<void>(ZynGetModuleHandle(module->second.c_str(), &moduleHandle));
    std::cout << "ZYN module handle for " << moduleName << " is " << moduleHandle << '\n'
              << std::flush;
    int labelHandle = -1;
    static_cast<void>(ZynGetLabelHandle(label->second.c_str(), &labelHandle));
    std::cout << "ZYN label handle for " << labelName << " is " << labelHandle << '\n'
              << std::flush;

    unsigned int clientNumber = ZYN_NO_CLIENT;
    std::string clientText;
    if (client != options.end()) {
        clientNumber = kTestClient;
        clientText = ", client " + Quoted(client->second);
        static_cast<void>(ZynRegisterClient(moduleHandle, clientNumber, client->second.c_str()));
    }
    const bool enabled = ZynTraceEnabledEx(moduleHandle, clientNumber, labelHandle) != 0;
    std::cout << "ZYN tracing status with module " << moduleName << clientText << " and label "
              << labelName << " is " << (enabled ? "enabled" : "disabled") << ".\n"
              << std::flush;
}
