// zyn-standin-service: the stand-in service as a program, for end-to-end tests and for trying the
// tool out. Prints what it sees, one stamped line per event; see kStandInUsage for its options.

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "testing/service/StandInOptions.h"

namespace {

using standin::Descriptor;

constexpr int kPollMs = 2;
constexpr int kUsageStatus = 2;

void PrintEvent(const std::string& text) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    std::array<char, sizeof "HH:MM:SS"> clock{};
    (void)std::strftime(clock.data(), clock.size(), "%H:%M:%S", &local);
    constexpr long kNanosecondsPerMs = 1000000;
    (void)std::printf("%s.%03ld %s\n", clock.data(), now.tv_nsec / kNanosecondsPerMs, text.c_str());
}

// SIGTERM and SIGINT as a readable descriptor: the loop ends between two steps, never within one.
Descriptor OpenEndSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    return Descriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
}

// Read and write, so that a FIFO neither waits for its first writer nor ends with its last.
Descriptor OpenOrderFile(const std::string& path) {
    if (path.empty()) {
        return Descriptor();
    }
    Descriptor file(path == "-" ? ::dup(STDIN_FILENO)
                                : ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        throw std::system_error(errno, std::generic_category(), "cannot open " + path);
    }
    return file;
}

// Collects what has been read into lines; false after "quit".
bool RunCommands(standin::StandInService& service, std::string& pending) {
    for (std::size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
        const std::string line = pending.substr(0, end);
        pending.erase(0, end + 1);
        try {
            if (!standin::RunServiceCommand(service, line)) {
                return false;
            }
        } catch (const std::invalid_argument& error) {
            // A slip at the keyboard is no reason to drop the clients.
            PrintEvent(error.what());
        }
    }
    return true;
}

void Serve(standin::StandInService& service, const Descriptor& endSignals, Descriptor orders) {
    std::string pending;
    for (;;) {
        std::array<pollfd, 2> ready = {pollfd{endSignals.Get(), POLLIN, 0},
                                       pollfd{orders.Get(), POLLIN, 0}};
        (void)::poll(ready.data(), ready.size(), kPollMs);
        if (ready[0].revents != 0) {
            return;
        }
        if (ready[1].revents != 0) {
            std::array<char, 4096> buffer{};
            const ssize_t bytes = ::read(orders.Get(), buffer.data(), buffer.size());
            if (bytes > 0) {
                pending.append(buffer.data(), static_cast<std::size_t>(bytes));
                if (!RunCommands(service, pending)) {
                    return;
                }
            } else if (bytes == 0) {
                // No more commands, but still a service.
                orders = Descriptor();
            }
        }
        service.Step();
    }
}

int Run(standin::StandInOptions options) {
    // Lines must be out before the program dies or stops on purpose.
    (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const Descriptor endSignals = OpenEndSignals();
    Descriptor orders = OpenOrderFile(options.orderFile);
    options.service.onEvent = PrintEvent;
    options.service.onDie = [] { ::_exit(EXIT_SUCCESS); };
    options.service.onStop = [] { (void)std::raise(SIGSTOP); };

    standin::StandInService service(std::move(options.service));
    service.Open();
    if (options.readyFd != -1 && ::write(options.readyFd, "r", 1) != 1) {
        throw std::system_error(errno, std::generic_category(), "cannot write to the ready fd");
    }
    Serve(service, endSignals, std::move(orders));
    service.Close();
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        const std::span<const char* const> arguments(argv, static_cast<std::size_t>(argc));
        standin::StandInOptions options;
        try {
            options = standin::ParseStandInOptions(arguments.subspan(1));
        } catch (const std::invalid_argument& error) {
            std::cerr << "zyn-standin-service: " << error.what() << '\n' << standin::kStandInUsage;
            return kUsageStatus;
        }
        if (options.help) {
            std::cout << standin::kStandInUsage;
            return EXIT_SUCCESS;
        }
        return Run(std::move(options));
    } catch (const std::exception& error) {
        std::cerr << "zyn-standin-service: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
