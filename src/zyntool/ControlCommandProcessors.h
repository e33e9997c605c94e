// The commands that drive the running tracing service: "pause", "resume", "reload", "preservation".
// Each says on standard output what it is about to do, sends the request through the client
// programming interface, and completes the line. The output is flushed before the request, which
// may take seconds, and before a failure is thrown, so that it stands in front of the report on
// standard error.
#ifndef ZYN_ZYNTOOL_CONTROLCOMMANDPROCESSORS_H
#define ZYN_ZYNTOOL_CONTROLCOMMANDPROCESSORS_H

#include "CommandProcess/CmdProcess.h"

// Throws std::runtime_error "Pause Tracing...Failed \n".
class PauseCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

// Throws std::runtime_error "Resume Tracing Failed \n".
class ResumeCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

// Throws std::runtime_error "Reloading Configuration Failed".
class ReloadCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

// Activates preservation mode with the option "ON", deactivates it otherwise. Throws
// std::runtime_error with what was printed first and " Failed".
class PreservationCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

#endif
