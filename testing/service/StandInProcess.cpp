// Starting and watching zyn-standin-service; see the header.

#include "testing/service/StandInProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace standin {

namespace {

using Clock = std::chrono::steady_clock;

struct Channel {
    Descriptor ours;
    Descriptor theirs;
};

// A socket rather than a pipe, because writing to a child that has died then fails without SIGPIPE.
Channel MakeChannel() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot make a channel");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

pid_t Spawn(const std::string& program, std::vector<std::string> arguments, int input, int output) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t pid = -1;
    const int error =
        ::posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot start " + program);
    }
    return pid;
}

}  // namespace

StandInProcess::StandInProcess(const std::string& program, const std::string& runDirectory,
                               const std::vector<std::string>& options) {
    Channel commands = MakeChannel();
    Channel lines = MakeChannel();
    std::vector<std::string> arguments = {program, "--run-dir", runDirectory, "--order-file", "-"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    pid_ = Spawn(program, std::move(arguments), commands.theirs.Get(), lines.theirs.Get());
    commands_ = std::move(commands.ours);
    lines_ = std::move(lines.ours);
    // Kept open here, the child's end of its output would hide its death.
    lines.theirs = Descriptor();
    if (!WaitForLine("ready")) {
        Signal(SIGKILL);
        (void)WaitForEnd();
        throw std::runtime_error(program + " did not come up: " + output_);
    }
}

StandInProcess::~StandInProcess() {
    if (pid_ != -1) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void StandInProcess::Command(const std::string& line) {
    const std::string text = line + "\n";
    if (::send(commands_.Get(), text.data(), text.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(text.size())) {
        throw std::system_error(errno, std::generic_category(), "cannot command the service");
    }
}

void StandInProcess::CloseCommands() { commands_ = Descriptor(); }

bool StandInProcess::ReadMore(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd ready{lines_.Get(), POLLIN, 0};
    if (left.count() < 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
        return false;
    }
    std::array<char, 4096> buffer{};
    const ssize_t bytes = ::read(lines_.Get(), buffer.data(), buffer.size());
    if (bytes <= 0) {
        return false;
    }
    output_.append(buffer.data(), static_cast<std::size_t>(bytes));
    return true;
}

std::vector<std::string> StandInProcess::Lines() {
    while (ReadMore(Clock::now())) {
    }
    constexpr std::size_t kStampBytes = std::string_view("HH:MM:SS.mmm ").size();
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = output_.find('\n'); end != std::string::npos;
         end = output_.find('\n', start)) {
        const std::string line = output_.substr(start, end - start);
        lines.push_back(line.substr(std::min(kStampBytes, line.size())));
        start = end + 1;
    }
    return lines;
}

bool StandInProcess::WaitForLine(const std::string& text, std::size_t count) {
    const Clock::time_point deadline = Clock::now() + kSimPatience;
    for (;;) {
        const std::vector<std::string> lines = Lines();
        const auto seen = std::count(lines.begin(), lines.end(), text);
        if (static_cast<std::size_t>(seen) >= count) {
            return true;
        }
        if (!ReadMore(deadline)) {
            return false;
        }
    }
}

void StandInProcess::Signal(int signal) const {
    if (pid_ != -1) {
        ::kill(pid_, signal);
    }
}

bool StandInProcess::WaitUntilStopped() const {
    int status = 0;
    pid_t result = -1;
    do {
        result = ::waitpid(pid_, &status, WUNTRACED);
    } while (result == -1 && errno == EINTR);
    return result == pid_ && WIFSTOPPED(status);
}

int StandInProcess::WaitForEnd() {
    if (pid_ == -1) {
        return -1;
    }
    // The end of its output is the end of the child, and can be waited for with a deadline.
    const Clock::time_point deadline = Clock::now() + kSimPatience;
    while (ReadMore(deadline)) {
    }
    if (Clock::now() >= deadline) {
        return -1;
    }
    int status = 0;
    pid_t result = -1;
    do {
        result = ::waitpid(pid_, &status, 0);
    } while (result == -1 && errno == EINTR);
    pid_ = -1;
    constexpr int kSignalBase = 128;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
}

int StandInProcess::Terminate() {
    Signal(SIGTERM);
    return WaitForEnd();
}

}  // namespace standin
