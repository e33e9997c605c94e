#include "testing/process/FileLock.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace {

// The child. Says 0 when it holds the lock, else why not.
[[noreturn]] void Hold(const char* path, int said) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    const int file = open(path, O_RDWR | O_CLOEXEC);
    const bool held = file != -1 && fcntl(file, F_SETLK, &lock) == 0;
    const char answer = held ? '\0' : static_cast<char>(errno);
    static_cast<void>(write(said, &answer, 1) == 1);
    while (held) {
        pause();
    }
    _exit(1);
}

}  // namespace

FileLock::FileLock(const std::string& path) {
    std::array<int, 2> said{};
    if (pipe2(said.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    child_ = fork();
    if (child_ == 0) {
        Hold(path.c_str(), said[1]);
    }
    close(said[1]);
    held_ = child_ != -1;
    char answer = 1;
    const bool answered = held_ && read(said[0], &answer, 1) == 1;
    close(said[0]);
    if (!answered || answer != '\0') {
        Release();
        throw std::system_error(answered ? answer : ECHILD, std::generic_category(), path);
    }
}

void FileLock::Release() {
    if (held_) {
        held_ = false;
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
}
