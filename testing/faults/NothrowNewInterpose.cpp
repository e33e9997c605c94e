// The operators new that return null, made to fail on request (see LibcCalls.h).

#include <cerrno>
#include <new>

#include "testing/faults/LibcInterpose.h"

namespace {

template <typename Allocate>
void* AllocateOrNull(const Allocate& allocate) noexcept {
    if (libccalls::FailsWithErrno(libccalls::Call::kNew)) {
        return nullptr;
    }
    try {
        return allocate();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateOrNull([size] { return ::operator new(size); });
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateOrNull([size] { return ::operator new[](size); });
}

void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
    return AllocateOrNull([size, alignment] { return ::operator new(size, alignment); });
}
