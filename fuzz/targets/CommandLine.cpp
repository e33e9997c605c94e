// Command lines against a small parser, path templates against a small expansion, and the variables
// that name the configuration file. The input is lines: a template, the variables A,
// KORVA_VANTOREL_CFG and VTRLCFGPATH ("!" leaves one unset), then the arguments.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CommandProcess/CmdProcess.h"
#include "Support/ConfigPath.h"
#include "Support/RuntimeInfo.h"
#include "targets/Support.h"
#include "testing/process/EnvironmentVariable.h"

namespace {

using Options = std::map<std::string, std::string>;

struct Outcome {
    std::string failure;
    std::string command;  // that ran; empty for none
    Options options;
};

class Recorder final : public CommandLineParser::CommandProcessor {
  public:
    Recorder(std::string name, Outcome& outcome) : name_(std::move(name)), outcome_(outcome) {}
    void Process(CommandLineParser::CommandOptions& options) override {
        outcome_.command += name_;
        outcome_.options = options;
        CheckLookups(options);
    }

  private:
    static void CheckLookups(const CommandLineParser::CommandOptions& options) {
        for (const char* name : {"D", "F", "d", ""}) {
            std::string value;
            const std::string failure = FailureOf([&] { value = options[name]; });
            const auto found = options.find(name);
            RequireEqual(failure, found == options.end() ? "Command option not found" : "",
                         "another end of a lookup");
            Require(found == options.end() || found->second == value, "another value");
        }
    }

    std::string name_;
    Outcome& outcome_;
};

std::string Upper(std::string text) {
    for (char& character : text) {
        if (character >= 'a' && character <= 'z') {
            character = static_cast<char>(character - 'a' + 'A');
        }
    }
    return text;
}

const std::vector<std::string>& Commands() {
    static const std::vector<std::string> commands{"export", "Clean", "pause", "x1"};
    return commands;
}

Outcome Parse(const std::vector<std::string>& arguments) {
    Outcome outcome;
    std::vector<Recorder> recorders;
    recorders.reserve(Commands().size());
    CommandLineParser parser;
    for (const std::string& command : Commands()) {
        recorders.emplace_back(command, outcome);
        parser.Add(command, &recorders.back());
    }
    // A word that is taken keeps its processor.
    Recorder second("second", outcome);
    parser.Add("EXPORT", &second);
    std::vector<const char*> pointers;
    pointers.reserve(arguments.size());
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    pointers.push_back(nullptr);
    outcome.failure = FailureOf(
        [&] { parser.Process(static_cast<unsigned int>(arguments.size()), pointers.data()); });
    return outcome;
}

// One state per argument: what stands in an option's place, and what may be a value.
Outcome ModelParse(const std::vector<std::string>& arguments) {
    if (arguments.empty()) {
        return {"Incorrect number of arguments", "", {}};
    }
    Outcome outcome;
    std::optional<std::string> open;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const bool dash = !argument.empty() && argument[0] == '-';
        if (open && !dash) {
            outcome.options.insert({*open, argument});
            open.reset();
            continue;
        }
        if (open) {
            outcome.options.insert({*open, ""});
            open.reset();
        }
        if (!dash) {
            return {"Incorrect option syntax", "", {}};
        }
        if (argument == "-") {
            return {"Missing option name", "", {}};
        }
        open = Upper(argument.substr(1));
    }
    if (open) {
        outcome.options.insert({*open, ""});
    }
    for (const std::string& command : Commands()) {
        if (Upper(command) == Upper(arguments[0])) {
            outcome.command = command;
            return outcome;
        }
    }
    return {"Invalid command", "", {}};
}

using Variables = std::map<std::string, std::optional<std::string>>;

std::string ModelExpand(const std::string& text, const Variables& variables) {
    std::string expanded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, 2, "$(") != 0) {
            expanded += text[i];
            continue;
        }
        const std::size_t close = text.find(')', i);
        if (close == std::string::npos) {
            break;
        }
        const auto variable = variables.find(text.substr(i + 2, close - i - 2));
        if (variable != variables.end() && variable->second) {
            expanded += *variable->second;
        }
        expanded += '/';
        i = close;
    }
    std::string collapsed;
    for (std::size_t i = 0; i < expanded.size(); ++i) {
        collapsed += expanded[i];
        i += expanded.compare(i, 2, "//") == 0 ? 1U : 0U;
    }
    return collapsed;
}

std::string ModelConfigPath(const Variables& variables) {
    std::string directory;
    for (const char* name : {"KORVA_VANTOREL_CFG", "VTRLCFGPATH"}) {
        if (directory.empty()) {
            directory = variables.at(name).value_or("");
        }
    }
    if (!directory.empty() && directory.back() != '/') {
        directory += '/';
    }
    const bool named = directory.find("cfg") != std::string::npos;
    return directory + (named ? "" : "cfg/") + "ZynConfigLinux.xml";
}

// Lines as the system would give them: no argument and no variable holds a NUL.
std::vector<std::string> LinesOf(std::string_view text) {
    std::vector<std::string> lines(1);
    for (const char character : text) {
        if (character == '\n') {
            lines.emplace_back();
        } else if (character != '\0') {
            lines.back() += character;
        }
    }
    return lines;
}

}  // namespace

int ZynFuzzCommandLine(FuzzInput input) {
    std::vector<std::string> lines = LinesOf(FuzzScript(input).Rest());
    constexpr std::size_t kVariablesEnd = 4;
    std::vector<std::string> arguments;
    for (std::size_t i = kVariablesEnd; i < lines.size(); ++i) {
        arguments.push_back(lines[i]);
    }
    lines.resize(kVariablesEnd, "!");

    Variables variables;
    const auto value = [&lines](std::size_t i) {
        return lines[i] == "!" ? std::nullopt : std::optional(lines[i]);
    };
    variables["A"] = value(1);
    variables["KORVA_VANTOREL_CFG"] = value(2);
    variables["VTRLCFGPATH"] = value(3);
    const EnvironmentVariable a("A", variables["A"]);
    const EnvironmentVariable first("KORVA_VANTOREL_CFG", variables["KORVA_VANTOREL_CFG"]);
    const EnvironmentVariable second("VTRLCFGPATH", variables["VTRLCFGPATH"]);
    // Other names, such as HOME, have values that the model does not know.
    std::string text = lines[0];
    for (std::size_t i = text.find("$("); i != std::string::npos; i = text.find("$(", i + 1)) {
        const std::string name = text.substr(i + 2, text.find(')', i) - i - 2);
        if (const char* other = std::getenv(name.c_str())) {
            variables[name] = other;
        }
    }
    RequireEqual(CRuntimeInfo::FormatEnvironmentVariables(text), ModelExpand(text, variables),
                 "another expansion");
    const std::string path = ZynConfigPathPolicy();
    RequireEqual(path, ModelConfigPath(variables), "another configuration file");

    const Outcome parsed = Parse(arguments);
    const Outcome expected = ModelParse(arguments);
    RequireEqual(parsed.failure, expected.failure, "another fault");
    RequireEqual(parsed.command, expected.command, "another command");
    Require(parsed.options == expected.options, "other options");
    return 0;
}
