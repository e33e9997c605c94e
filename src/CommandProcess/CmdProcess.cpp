#include "CommandProcess/CmdProcess.h"

#include <cctype>
#include <string_view>
#include <utility>

namespace {

std::string UpperCase(std::string_view text) {
    std::string upper(text);
    for (char& character : upper) {
        character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
    return upper;
}

// Thrown directly rather than through a check: a typing mistake is no matter for the diagnostic
// log.
void CheckSyntax(bool condition, const char* message, unsigned int line) {
    if (!condition) {
        throw CommandLineParser::SyntaxException(message, __FILE__, line);
    }
}

CommandLineParser::CommandOptions ParseOptions(unsigned int count, const char** args) {
    CommandLineParser::CommandOptions options;
    for (unsigned int i = 1; i < count; ++i) {
        const std::string_view argument = args[i];
        CheckSyntax(argument.starts_with('-'), "Incorrect option syntax", __LINE__);
        CheckSyntax(argument.size() >= 2, "Missing option name", __LINE__);
        std::string value;
        if (i + 1 < count && args[i + 1][0] != '-') {
            value = args[++i];
        }
        options.emplace(UpperCase(argument.substr(1)), std::move(value));
    }
    return options;
}

}  // namespace

const std::string& CommandLineParser::CommandOptions::operator[](const std::string& name) const {
    const auto found = find(name);
    CheckSyntax(found != end(), "Command option not found", __LINE__);
    return found->second;
}

void CommandLineParser::Add(const std::string& name, CommandProcessor* processor) {
    ZYN_CHECK_PARAMETER(processor != nullptr, "NewProcessor is not a valid pointer");
    processors_.emplace(UpperCase(name), processor);
}

void CommandLineParser::Process(unsigned int count, const char** args) {
    CheckSyntax(count != 0, "Incorrect number of arguments", __LINE__);
    CheckSyntax(args != nullptr, "Invalid arguments", __LINE__);
    const std::string command = UpperCase(args[0]);
    CommandOptions options = ParseOptions(count, args);
    const auto found = processors_.find(command);
    CheckSyntax(found != processors_.end(), "Invalid command", __LINE__);
    found->second->Process(options);
}
