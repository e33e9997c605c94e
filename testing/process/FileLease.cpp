#include "testing/process/FileLease.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace {

[[noreturn]] void Fail(const char* what, int error) {
    throw std::system_error(error, std::generic_category(), what);
}

void MakePipe(std::array<int, 2>& ends) {
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        Fail("pipe2", errno);
    }
}

// The child. Says 'h' when it holds the lease and 'a' when it is to give it up; ends, and with it
// the lease, when the other end of `ended` is closed.
[[noreturn]] void Hold(const char* path, int said, int ended) {
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGIO);
    sigprocmask(SIG_BLOCK, &asked, nullptr);
    const int file = open(path, O_RDWR | O_CLOEXEC);
    if (file == -1 || fcntl(file, F_SETLEASE, F_WRLCK) != 0) {
        const auto error = static_cast<char>(errno);
        _exit(write(said, &error, 1) == 1 ? 1 : 2);
    }
    static_cast<void>(write(said, "h", 1) == 1);
    // The end is looked for between short waits, because a signal and a pipe have no wait in
    // common.
    const timespec wait{0, 1'000'000};
    fcntl(ended, F_SETFL, O_NONBLOCK);
    char byte = 0;
    while (read(ended, &byte, 1) != 0) {
        if (sigtimedwait(&asked, nullptr, &wait) == SIGIO) {
            static_cast<void>(write(said, "a", 1) == 1);
        }
    }
    _exit(0);
}

}  // namespace

FileLease::FileLease(const std::string& path) {
    std::array<int, 2> said{};
    std::array<int, 2> ended{};
    MakePipe(said);
    MakePipe(ended);
    child_ = fork();
    if (child_ == 0) {
        close(ended[1]);
        Hold(path.c_str(), said[1], ended[0]);
    }
    close(said[1]);
    close(ended[0]);
    fromChild_ = said[0];
    toChild_ = ended[1];
    char answer = 0;
    const bool answered = child_ != -1 && read(fromChild_, &answer, 1) == 1;
    if (!answered || answer != 'h') {
        Release();
        Fail("F_SETLEASE", answered ? answer : ECHILD);
    }
}

FileLease::~FileLease() {
    Release();
    close(fromChild_);
}

void FileLease::WaitUntilAsked() const {
    char answer = 0;
    if (read(fromChild_, &answer, 1) != 1) {
        Fail("nobody asked for the lease", ECHILD);
    }
}

void FileLease::Release() {
    if (toChild_ != -1) {
        close(toChild_);
        toChild_ = -1;
        waitpid(child_, nullptr, 0);
    }
}
