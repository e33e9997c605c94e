#ifndef ZYN_TESTING_PROCESS_RUNPROGRAM_H
#define ZYN_TESTING_PROCESS_RUNPROGRAM_H

// Runs a program from outside, as a user would: own environment, own directory, all of its output,
// its exit status, and a deadline after which it and its children are killed.

#include <sys/resource.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct ProgramRun {
    std::string program;                 // path; no search along PATH
    std::vector<std::string> arguments;  // without the program's own name

    // All of the environment, as "NAME=value". Of this process's own environment only the option
    // variables of the sanitizers are added, where the list does not name them itself.
    std::vector<std::string> environment;

    std::string directory;  // empty: that of this process

    // Text that waits in a pipe, at most 60,000 bytes; std::nullopt: /dev/null.
    std::optional<std::string> input;
    bool closedInput = false;  // descriptor 0 is not open at all

    bool mergedOutput = false;   // both streams in one pipe, in `output`, in the order of writing
    std::string outputPath;      // not empty: opened for writing as standard output, not captured
    std::string errorPath;       // the same for standard error, e.g. "/dev/full"
    bool closedOutput = false;   // descriptor 1 is not open at all
    bool closedError = false;    // descriptor 2 is not open at all
    bool brokenOutput = false;   // standard output is a pipe that nobody reads
    std::string preloadLibrary;  // path for the dynamic loader's LD_PRELOAD
    std::vector<std::pair<int, rlim_t>> limits;  // {RLIMIT_..., soft limit}
    std::chrono::seconds deadline{60};
};

struct ProgramResult {
    int status = -1;        // exit status, -1 when a signal ended it
    int signal = 0;         // the signal that ended it, else 0
    bool timedOut = false;  // the deadline passed and it was killed
    std::string output;
    std::string error;

    // Memory high-water mark in KiB. The kernel counts the moment before the program replaced this
    // process's copy too, so a test that holds much memory itself reads its own size here.
    long peakKiB = 0;
};

// Throws std::system_error when the program cannot be started, std::invalid_argument for a run that
// contradicts itself. May be used by several threads at once.
[[nodiscard]] ProgramResult RunProgram(const ProgramRun& run);

#endif
