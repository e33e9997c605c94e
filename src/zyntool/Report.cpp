#include "zyntool/Report.h"

#include <ostream>

void PrintBanner(std::ostream& out) {
    out << "Runtime Tracing Command Line Utility 3.0\n"
           "------------------------------------------------------"
        << std::endl;
}

// Kept as is: the wording, spacing and spelling are what users and their scripts know.
void PrintUsage(std::ostream& out, const char* fault) {
    out << fault
        << ".\n\n"
           "Syntax: zyntool command [options]\n\n"
           "zyntool pause: Pause tracing temporary\n"
           "zyntool resume: Resume from temporary paused tracing\n"
           "zyntool reload: Reload configuration\n"
           "zyntool preservation -[on|off]: Turn on/off preservation mode\n"
           "zyntool export [-d source_dir|-s source_file] [-f [dest_file]|-m dest_dir]: Export "
           "trace data\n"
           "       if [-silent] tag is on, no status output to console\n"
           "zyntool clean [-f]: Clean and remove all log files\n"
        << std::flush;
}

void PrintFailure(std::ostream& out, const char* description) {
    out << "Operation failed.\nError description:" << description << std::endl;
}
