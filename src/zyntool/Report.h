// What the tool prints on standard error besides a command's own output.
#ifndef ZYN_ZYNTOOL_REPORT_H
#define ZYN_ZYNTOOL_REPORT_H

#include <iosfwd>

void PrintBanner(std::ostream& out);

// After a fault in how the tool was called: the fault, an empty line and the usage text.
void PrintUsage(std::ostream& out, const char* fault);

// After a command that failed.
void PrintFailure(std::ostream& out, const char* description);

#endif
