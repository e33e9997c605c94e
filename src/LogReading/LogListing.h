// The files of a log directory, as every reader of logs lists them.
#ifndef ZYN_LOGREADING_LOGLISTING_H
#define ZYN_LOGREADING_LOGLISTING_H

#include <string>
#include <string_view>
#include <vector>

#include "LogReading/InputIssue.h"

// The name that a file had before it was compressed: "zynlog-2.txt" of "zynlog-2.txt.gz".
[[nodiscard]] std::string_view PlainName(std::string_view name) noexcept;

// Whether a log file's data comes before another one's: in the order of their plain names, the
// plain one before those that were made of it.
[[nodiscard]] bool StandsBefore(std::string_view left, std::string_view right) noexcept;

// Names of files in a directory in that order. Of several files that were one before they were
// compressed the plain one stays, or the first; the others are issues. A name that is there twice
// stays so.
[[nodiscard]] std::vector<std::string> SortedWithoutTwins(const std::string& directory,
                                                          std::vector<std::string> names,
                                                          InputListener& listener);

// The path of a file in a directory, which ends without a slash.
[[nodiscard]] std::string PathIn(std::string directory, std::string_view name);

// The names of a directory's log files in the order of an export, compressed ones where their plain
// names would stand. Of several files that were one before they were compressed the plain one is
// listed, or the first; the others are issues. A directory that does not exist has no files.
// Throws CheckOSCall "Can not read directory".
[[nodiscard]] std::vector<std::string> ListLogFiles(const std::string& directory,
                                                    InputListener& listener);

#endif
