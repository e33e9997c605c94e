// Verifies logs: reads them with the readers of the export, writes nothing, and tells what an
// export would drop, stop at or leave in disorder.
#ifndef ZYN_ZYNVERIFY_LOGVERIFIER_H
#define ZYN_ZYNVERIFY_LOGVERIFIER_H

#include <string>
#include <vector>

#include "zynverify/Findings.h"

// Files of one directory that are read as one stream, in the bytewise order of their names.
struct LogToVerify {
    std::string name;  // as the user knows it
    std::string directory;
    std::vector<std::string> files;
};

// Splits what the user named into logs: a directory is one, with its files "zynlog-...txt"; files
// of the same directory are one together, or one each with `separate`. Throws std::system_error for
// a path that does not exist or cannot be looked into.
[[nodiscard]] std::vector<LogToVerify> FindLogs(const std::vector<std::string>& paths,
                                                bool separate);

// Verifies one log. Damage within a block costs the rest of it, a damaged packet its record: it
// goes on with the next block, or record. Behind a damaged block header nothing can be found any
// more: it ends there, and says how many bytes are left. Memory: that of the export, some 100 KiB
// for the sequence numbers, and a report per file. Throws only what the listener throws; a file
// that cannot be read is a finding.
LogReport VerifyLog(const LogToVerify& log, VerifyListener& listener);

#endif
