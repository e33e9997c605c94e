// What another program prints, taken with a limit on time and size.
#ifndef ZYN_ZYNDOCTOR_PROGRAMOUTPUT_H
#define ZYN_ZYNDOCTOR_PROGRAMOUTPUT_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

struct ProgramOutput {
    enum class End { kExited, kNotFound, kTimedOut, kFailed };
    End end = End::kFailed;
    int status = -1;   // of kExited; -1 after a signal
    std::string text;  // both streams
};

// Runs a program that is searched in PATH, without input and in the C locale, and reaps it. It is
// killed when the time is over; output beyond the limit is read and dropped. Throws std::bad_alloc.
[[nodiscard]] ProgramOutput RunForOutput(const std::vector<std::string>& command,
                                         std::chrono::milliseconds limit, std::size_t maxBytes);

#endif
