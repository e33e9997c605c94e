// From the operands of the command line to the logs that are verified.
#ifndef ZYN_ZYNVERIFY_LOGOPERANDS_H
#define ZYN_ZYNVERIFY_LOGOPERANDS_H

#include <string>
#include <vector>

#include "LogReading/InputIssue.h"

// Files of one directory that are read as one stream, in the bytewise order of their names,
// compressed ones where their plain names would stand.
struct LogToVerify {
    std::string name;  // as the user knows it
    std::string directory;
    std::vector<std::string> files{};
    std::string shown{};              // what the only file is called in reports; empty: by its path
    std::vector<InputIssue> twins{};  // files that were one with one of these: not read
    bool growing = false;  // its last file may be in the middle of a block, or of its header
};

struct FoundLogs {
    std::vector<LogToVerify> logs;
    // Operands that do not exist or cannot be looked into: path and reason.
    std::vector<std::string> errors;
};

struct OperandOptions {
    bool separate = false;  // each file is a log of its own
    bool live = false;      // the last file of each directory may be growing
};

// Splits what the user named into logs: a directory is one, with its log files; files of the same
// directory are one together. "-" is the standard input, one log file, which is copied into an
// unnamed temporary file first unless it is a file itself; throws std::system_error when that
// fails. A directory without log files is a log without files.
[[nodiscard]] FoundLogs FindLogs(const std::vector<std::string>& paths, OperandOptions options);

#endif
