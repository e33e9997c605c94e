// The command "test".
#ifndef ZYN_ZYNTOOL_TESTCOMMANDPROCESSOR_H
#define ZYN_ZYNTOOL_TESTCOMMANDPROCESSOR_H

#include "CommandProcess/CmdProcess.h"

// Asks the client programming interface for the handles of a module (option "M") and a label ("L"),
// and whether tracing is enabled for them, for a client ("C") or none in particular, and prints the
// answers on standard output. Does nothing without "M" or without "L". Throws nothing: a handle
// that could not be had is shown as -1.
class TestCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

#endif
