// The program that libFuzzer runs one target in. The build names the target.
#include <cstddef>
#include <cstdint>

#include "targets/Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return ZYN_FUZZ_TARGET({data, size});
}
