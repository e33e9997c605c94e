// Does what its arguments say, one after the other, so that a test can see what a program that is
// run from outside is given, and how its end is reported.

#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

namespace {

int Number(std::string_view digits) {
    int number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

void CopyInput() {
    char buffer[4096];
    ssize_t got = 0;
    while ((got = read(STDIN_FILENO, buffer, sizeof buffer)) > 0) {
        std::cout.write(buffer, got);
    }
    std::cout << (got < 0 && errno == EBADF ? "<closed>" : "<end>") << std::flush;
}

void ShowEnvironment() {
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::cout << *entry << "\n";
    }
}

void ShowLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    std::cout << limit.rlim_cur << "\n";
}

void SendSyslog() {
    openlog("probe", LOG_PID, LOG_DAEMON);
    syslog(LOG_WARNING, "%s and %d", "text", 42);
    closelog();
    syslog(LOG_ERR, "plain");
}

void WaitForever() {
    for (;;) {
        pause();
    }
}

// Leaves a child behind that keeps the standard streams open.
void ForkWaiter() {
    if (fork() == 0) {
        WaitForever();
    }
}

// What is written to a descriptor that takes nothing.
void ShowWriteError(int descriptor) {
    const bool failed = write(descriptor, "x", 1) < 0;
    const int error = errno;
    const std::string text = failed ? std::to_string(error) : "written";
    const int other = descriptor == STDOUT_FILENO ? STDERR_FILENO : STDOUT_FILENO;
    static_cast<void>(!write(other, text.data(), text.size()));
}

bool Do(std::string_view action) {
    if (action.starts_with("out:")) {
        std::cout << action.substr(4) << std::flush;
    } else if (action.starts_with("err:")) {
        std::cerr << action.substr(4) << std::flush;
    } else if (action.starts_with("exit:")) {
        std::exit(Number(action.substr(5)));
    } else if (action.starts_with("much:")) {
        std::cout << std::string(static_cast<std::size_t>(Number(action.substr(5))), 'x');
        std::cout << std::flush;
    } else if (action == "cat") {
        CopyInput();
    } else if (action == "env") {
        ShowEnvironment();
    } else if (action == "cwd") {
        char path[4096];
        std::cout << (getcwd(path, sizeof path) != nullptr ? path : "?") << "\n";
    } else if (action == "limit") {
        ShowLimit();
    } else if (action == "syslog") {
        SendSyslog();
    } else if (action == "abort") {
        kill(getpid(), SIGKILL);
    } else if (action == "wait") {
        WaitForever();
    } else if (action == "fork-waiter") {
        ForkWaiter();
    } else if (action == "write-error:1") {
        static_cast<void>(signal(SIGPIPE, SIG_IGN));
        ShowWriteError(STDOUT_FILENO);
    } else if (action == "write-error:2") {
        ShowWriteError(STDERR_FILENO);
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!Do(argv[i])) {
            std::cerr << "unknown action " << argv[i] << "\n";
            return 64;
        }
    }
    return 0;
}
