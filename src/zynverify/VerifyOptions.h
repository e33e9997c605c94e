// The command line of zynlog-verify.
#ifndef ZYN_ZYNVERIFY_VERIFYOPTIONS_H
#define ZYN_ZYNVERIFY_VERIFYOPTIONS_H

#include <optional>
#include <string>
#include <vector>

struct VerifyOptions {
    bool json = false;
    bool blocks = false;
    bool live = false;
    bool separate = false;
    bool quiet = false;
    bool help = false;
    bool version = false;
    std::optional<std::string> salvage;  // the directory of the copy
    std::string mistake;                 // what is wrong with the command line; empty: nothing
    std::vector<std::string> paths;
};

extern const char* const kVerifyUsage;

// Parses with getopt_long, which keeps state: once per process.
[[nodiscard]] VerifyOptions ParseVerifyOptions(int argc, char** argv);

#endif
