// The command "clean".
#ifndef ZYN_ZYNTOOL_CLEANCOMMANDPROCESSOR_H
#define ZYN_ZYNTOOL_CLEANCOMMANDPROCESSOR_H

#include "CommandProcess/CmdProcess.h"

// Deletes every binary log file of the configured log directory: the names that begin with
// "zynlog-" and contain "txt". Asks on standard error and reads the answer from standard input;
// with the option "F" it deletes without a word, for scripts. Without a log path nothing is listed
// or deleted, and the failure that kept the path from being read is thrown, if there is one. Throws
// CheckLogic "Can not ask" when the input has ended and standard error cannot be written either,
// and CheckOSCall "Can not delete file" at the first file that cannot be deleted; the rest stay.
class CleanCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

#endif
