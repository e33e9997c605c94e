// One run of zynlog-cat: reads logs, chooses records and shows them.
#ifndef ZYN_ZYNLOGCAT_CATRUN_H
#define ZYN_ZYNLOGCAT_CATRUN_H

#include <iosfwd>

#include "TraceData/text/TextFile.h"
#include "zynlogcat/CatOptions.h"

// The environment in which it runs.
struct CatTerminal {
    bool isTerminal = false;  // standard output
    bool colors = false;
};

// Shows the records that the options select; returns the exit status. Throws what the output throws
// when it cannot be written; what cannot be read is reported on `errors`, and CatUsageError is
// thrown before anything is read.
[[nodiscard]] int RunCat(const CatOptions& options, const CatTerminal& terminal, TextFile& out,
                         std::ostream& errors);

#endif
