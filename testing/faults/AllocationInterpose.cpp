// The allocation functions of the C library, made to fail on request (see LibcCalls.h). For the
// preloaded library only: a test program's own memory is needed by the test.

#include <malloc.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "testing/faults/LibcInterpose.h"

namespace {

using libccalls::Call;
using libccalls::FailsWithErrno;
using libccalls::Real;

// The dynamic linker's lookup may itself allocate before the first lookup is done: such memory
// comes from here, zeroed, and is never given back.
constexpr std::size_t kEarlyBytes = 4096;
alignas(std::max_align_t) constinit std::array<unsigned char, kEarlyBytes> earlyMemory{};
constinit std::size_t earlyUsed = 0;
constinit thread_local bool lookingUp [[gnu::tls_model("initial-exec")]] = false;

void* EarlyAllocate(std::size_t size) {
    const std::size_t rounded =
        (size + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
    if (rounded > kEarlyBytes - earlyUsed) {
        __builtin_trap();
    }
    void* memory = earlyMemory.data() + earlyUsed;
    earlyUsed += rounded;
    return memory;
}

bool IsEarly(const void* memory) {
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    const auto begin = reinterpret_cast<std::uintptr_t>(earlyMemory.data());
    return address >= begin && address - begin < kEarlyBytes;
}

template <typename Function>
Function* LookUp(Real<Function>& real) {
    lookingUp = true;
    Function* const function = real();
    lookingUp = false;
    return function;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    static constinit Real<void*(std::size_t)> real("malloc");
    if (lookingUp) {
        return EarlyAllocate(size);
    }
    return FailsWithErrno(Call::kMalloc) ? nullptr : LookUp(real)(size);
}

void* calloc(std::size_t count, std::size_t size) {
    static constinit Real<void*(std::size_t, std::size_t)> real("calloc");
    if (lookingUp) {
        return EarlyAllocate(count * size);
    }
    return FailsWithErrno(Call::kCalloc) ? nullptr : LookUp(real)(count, size);
}

void* realloc(void* memory, std::size_t size) {
    static constinit Real<void*(void*, std::size_t)> real("realloc");
    if (IsEarly(memory)) {
        __builtin_trap();
    }
    return FailsWithErrno(Call::kRealloc) ? nullptr : LookUp(real)(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    static constinit Real<void*(std::size_t, std::size_t)> real("aligned_alloc");
    return FailsWithErrno(Call::kMalloc) ? nullptr : LookUp(real)(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    static constinit Real<int(void**, std::size_t, std::size_t)> real("posix_memalign");
    const int error = libccalls::ErrorDue(Call::kMalloc);
    return error != 0 ? error : LookUp(real)(memory, alignment, size);
}

void free(void* memory) {
    static constinit Real<void(void*)> real("free");
    if (!IsEarly(memory)) {
        LookUp(real)(memory);
    }
}

}  // extern "C"
