#include "Support/WantOfMemory.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <exception>

namespace {

// Set once, before anything can fail.
constinit const char* farewell = nullptr;
constinit int farewellStatus = 0;
constinit std::terminate_handler before = nullptr;

[[noreturn]] void End() {
    // An exception that nobody has caught is no want of memory.
    if (std::current_exception() == nullptr) {
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
