#include "zyndoctor/ProgramOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "Support/FileDescriptor.h"

namespace {

class FileActions {
  public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }

    // Input from nowhere, both outputs into one descriptor.
    [[nodiscard]] bool Redirect(int output) {
        return posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY,
                                                0) == 0 &&
               posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO) == 0 &&
               posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO) == 0;
    }
    [[nodiscard]] const posix_spawn_file_actions_t* Get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

// The process's environment with LC_ALL=C.
std::vector<char*> PlainEnvironment(std::string& locale) {
    std::vector<char*> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!std::string_view(*variable).starts_with("LC_ALL=")) {
            variables.push_back(*variable);
        }
    }
    locale = "LC_ALL=C";
    variables.push_back(locale.data());
    variables.push_back(nullptr);
    return variables;
}

// Whether the end of the output came in time.
bool ReadAll(int input, std::chrono::milliseconds limit, std::size_t maxBytes, std::string& text) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + limit;
    std::array<char, 4096> bytes{};
    while (true) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waiting{input, POLLIN, 0};
        const int ready = left > 0 ? ::poll(&waiting, 1, static_cast<int>(left)) : 0;
        if (ready == -1 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return false;
        }
        const ssize_t count = ::read(input, bytes.data(), bytes.size());
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return true;
        }
        text.append(bytes.data(),
                    std::min(static_cast<std::size_t>(count), maxBytes - text.size()));
    }
}

int Reap(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

ProgramOutput RunForOutput(const std::vector<std::string>& command, std::chrono::milliseconds limit,
                           std::size_t maxBytes) {
    ProgramOutput output;
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return output;
    }
    const FileDescriptor input(ends[0]);
    FileDescriptor theirs(ends[1]);
    FileActions actions;
    std::vector<std::string> words = command;
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::string locale;
    std::vector<char*> variables = PlainEnvironment(locale);
    pid_t child = 0;
    const int error = actions.Redirect(theirs.Get())
                          ? ::posix_spawnp(&child, arguments[0], actions.Get(), nullptr,
                                           arguments.data(), variables.data())
                          : ENOMEM;
    theirs.Close();
    if (error != 0) {
        output.end = error == ENOENT ? ProgramOutput::End::kNotFound : ProgramOutput::End::kFailed;
        return output;
    }
    const bool inTime = ReadAll(input.Get(), limit, maxBytes, output.text);
    if (!inTime) {
        ::kill(child, SIGKILL);
    }
    output.status = Reap(child);
    output.end = inTime ? ProgramOutput::End::kExited : ProgramOutput::End::kTimedOut;
    return output;
}
