// The command-line grammar: `command [-name [value]]...`. Knows nothing of any command's meaning.
#ifndef ZYN_COMMANDPROCESS_CMDPROCESS_H
#define ZYN_COMMANDPROCESS_CMDPROCESS_H

#include <map>
#include <stdexcept>
#include <string>

#include "Support/ValidationException.h"

// Turns arguments into a command word and options and runs the processor registered for the word.
// Command words and option names are compared without regard to case; values keep theirs. A value
// cannot begin with '-': such an argument is read as the next option. One thread.
class CommandLineParser {
  public:
    // A fault in how the program was called, as opposed to a failure of the command.
    class SyntaxException : public ExtendedException<std::logic_error> {
      public:
        using ExtendedException<std::logic_error>::ExtendedException;
    };

    // Option name (upper case, without its leading "-") to value (empty when none was given).
    class CommandOptions : public std::map<std::string, std::string> {
      public:
        using std::map<std::string, std::string>::map;
        // The value of an option that is required, looked up exactly as passed. Throws
        // SyntaxException "Command option not found". Use find for an option that may be absent.
        const std::string& operator[](const std::string& name) const;
    };

    // One command. Never deleted through this base.
    class CommandProcessor {
      public:
        virtual void Process(CommandOptions& options) = 0;

      protected:
        CommandProcessor() = default;
        CommandProcessor(const CommandProcessor&) = default;
        CommandProcessor& operator=(const CommandProcessor&) = default;
        ~CommandProcessor() = default;
    };

    // Registers a processor, which the caller owns and keeps alive. The first one registered for a
    // word stays. Throws CheckParameter "NewProcessor is not a valid pointer" for a null processor.
    void Add(const std::string& name, CommandProcessor* processor);

    // Parses count arguments (without the program's name) and runs the command. Throws
    // SyntaxException "Incorrect number of arguments", "Invalid arguments", "Incorrect option
    // syntax", "Missing option name" or "Invalid command" before any processor runs; what a
    // processor throws passes unchanged. The command word is looked up last: an unknown command
    // with a malformed option reports the option.
    void Process(unsigned int count, const char** args);

  private:
    std::map<std::string, CommandProcessor*> processors_;
};

#endif
