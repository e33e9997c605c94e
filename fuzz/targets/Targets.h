// The fuzz targets of targets.txt, as functions. Run by libFuzzer (main.cpp) and, over the kept
// inputs, by an ordinary test in every build.
#ifndef ZYN_FUZZ_TARGETS_TARGETS_H
#define ZYN_FUZZ_TARGETS_TARGETS_H

#include <array>
#include <cstdint>
#include <span>

using FuzzInput = std::span<const std::uint8_t>;

// Each returns 0 and throws FuzzMismatch when the program and the model differ. One thread.
#define ZYN_FUZZ_ENTRY(name, function) int function(FuzzInput input);
#include "FuzzTargetList.inc"
#undef ZYN_FUZZ_ENTRY

struct FuzzTarget {
    const char* name;  // of its folders in fuzz/corpus and fuzz/findings
    int (*run)(FuzzInput);
};

#define ZYN_FUZZ_ENTRY(name, function) FuzzTarget{#name, function},
inline constexpr std::array kFuzzTargets{
#include "FuzzTargetList.inc"
};
#undef ZYN_FUZZ_ENTRY

#endif
