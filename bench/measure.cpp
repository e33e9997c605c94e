// Runs a program with its output thrown away, or in a file, and prints what it took: CPU
// nanoseconds, wall-clock nanoseconds, peak resident KiB. Small itself, because the peak of a
// program is counted from before it replaces the one that started it. Usage: measure [-o FILE]
// COMMAND [ARGUMENT...]
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

std::int64_t Nanoseconds(const timeval& time) {
    return (std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec) * 1000;
}

[[noreturn]] void Become(const char* output, char** command) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(output == nullptr ? nowhere : open(output, O_WRONLY | O_CREAT | O_TRUNC, 0644),
         STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execvp(command[0], command);
    _exit(127);
}

}  // namespace

int main(int argc, char** argv) {
    const bool toFile = argc > 3 && std::strcmp(argv[1], "-o") == 0;
    if (argc < 2) {
        std::cerr << "usage: measure [-o FILE] COMMAND [ARGUMENT...]\n";
        return 2;
    }
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        Become(toFile ? argv[2] : nullptr, argv + (toFile ? 3 : 1));
    }
    int status = 0;
    rusage usage{};
    if (child == -1 || wait4(child, &status, 0, &usage) != child) {
        std::perror("measure");
        return 2;
    }
    const auto wall = std::chrono::steady_clock::now() - begin;
    const std::int64_t cpu = Nanoseconds(usage.ru_utime) + Nanoseconds(usage.ru_stime);
    std::cout << cpu << ' ' << std::chrono::nanoseconds(wall).count() << ' ' << usage.ru_maxrss
              << '\n';
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
