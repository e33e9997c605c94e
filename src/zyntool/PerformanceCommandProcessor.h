// The command "performance".
#ifndef ZYN_ZYNTOOL_PERFORMANCECOMMANDPROCESSOR_H
#define ZYN_ZYNTOOL_PERFORMANCECOMMANDPROCESSOR_H

#include "CommandProcess/CmdProcess.h"

// A placeholder: requires the option "T", reads it as a number, collects nothing and writes one
// line to stderr. Throws SyntaxException "Command option not found" without "T".
class PerformanceCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

#endif
