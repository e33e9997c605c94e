// The fuzz targets: each takes any bytes as its input, runs one piece of the program on them and
// compares what comes out with a small model of it. Run by libFuzzer (main.cpp) and, over the kept
// inputs, by an ordinary test in every build.
#ifndef ZYN_FUZZ_TARGETS_TARGETS_H
#define ZYN_FUZZ_TARGETS_TARGETS_H

#include <array>
#include <cstdint>
#include <span>

using FuzzInput = std::span<const std::uint8_t>;

// Each returns 0 and throws FuzzMismatch when the program and the model differ. One thread.

// A log block, read, put in order and rendered as text, by way of each road through the reader.
int ZynFuzzBlock(FuzzInput input);
// A record's packets, decoded by the road for usual records and by the general one, and rendered.
int ZynFuzzRecord(FuzzInput input);
// A log cut over one to four files.
int ZynFuzzStream(FuzzInput input);
// The image of a client's receiving ring, then polls and overwrites of it.
int ZynFuzzReceiveRing(FuzzInput input);
// The same with frames that are sent into a ring.
int ZynFuzzSendRing(FuzzInput input);
// A configuration file, read by the tool's and by the filter's reader and by a model of them.
int ZynFuzzConfig(FuzzInput input);
// Command lines, path templates and the variables that name the configuration file.
int ZynFuzzCommandLine(FuzzInput input);
// Changes of the filter tables and queries in between.
int ZynFuzzFilterTables(FuzzInput input);
// Sequence numbers pushed through re-orderings of several sizes.
int ZynFuzzReorder(FuzzInput input);

struct FuzzTarget {
    const char* name;  // of its folders in fuzz/corpus and fuzz/findings
    int (*run)(FuzzInput);
};

inline constexpr std::array<FuzzTarget, 9> kFuzzTargets{{
    {"block", ZynFuzzBlock},
    {"record", ZynFuzzRecord},
    {"stream", ZynFuzzStream},
    {"receive_ring", ZynFuzzReceiveRing},
    {"send_ring", ZynFuzzSendRing},
    {"config", ZynFuzzConfig},
    {"command_line", ZynFuzzCommandLine},
    {"filter_tables", ZynFuzzFilterTables},
    {"reorder", ZynFuzzReorder},
}};

#endif
