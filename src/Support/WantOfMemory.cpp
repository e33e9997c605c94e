#include "Support/WantOfMemory.h"

#include <cxxabi.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <typeinfo>

namespace {

// Set once, before anything can fail.
constinit const char* farewell = nullptr;
constinit int farewellStatus = 0;
constinit std::terminate_handler before = nullptr;

[[noreturn]] void End() {
    // None has been caught so far, or there is none; any other one is no want of memory.
    const std::type_info* const thrown = abi::__cxa_current_exception_type();
    if (thrown == nullptr || *thrown == typeid(std::bad_alloc)) {
        // The reader may have gone; there is nothing left to be done about it.
        const ssize_t written = write(STDERR_FILENO, farewell, std::strlen(farewell));
        static_cast<void>(written);
        _exit(farewellStatus);
    }
    before();
    std::abort();
}

}  // namespace

void EndWithoutMemory(const char* text, int status) noexcept {
    farewell = text;
    farewellStatus = status;
    before = std::set_terminate(End);
}
