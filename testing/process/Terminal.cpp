#include "testing/process/Terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <system_error>

Terminal::Terminal(unsigned columns) : terminal_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    winsize size{};
    size.ws_col = static_cast<unsigned short>(columns);
    if (terminal_ == -1 || grantpt(terminal_) != 0 || unlockpt(terminal_) != 0 ||
        ioctl(terminal_, TIOCSWINSZ, &size) != 0) {
        const int reason = errno;
        if (terminal_ != -1) {
            close(terminal_);
        }
        throw std::system_error(reason, std::generic_category(), "terminal");
    }
}

Terminal::~Terminal() { close(terminal_); }

std::string Terminal::Path() const { return ptsname(terminal_); }

std::string Terminal::Shown() {
    std::string shown;
    std::array<char, 256> piece{};
    // Ends with an error when the other side is open nowhere any more.
    for (ssize_t count = 0; (count = read(terminal_, piece.data(), piece.size())) > 0;) {
        shown.append(piece.data(), static_cast<std::size_t>(count));
    }
    return shown;
}
