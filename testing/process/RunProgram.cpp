// Runs a program from outside (see RunProgram.h). Between fork and execve only functions that are
// safe there are called, since other threads of a test may hold any lock at that moment.

#include "testing/process/RunProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostInput = 60000;
constexpr int kPollStepMs = 20;

[[noreturn]] void Fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int Get() const { return number_; }
    [[nodiscard]] bool IsOpen() const { return number_ >= 0; }
    void Close() {
        if (number_ >= 0) {
            close(number_);
            number_ = -1;
        }
    }

  private:
    int number_ = -1;
};

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

// A descriptor at or above 3, so that the child can put it at 0 to 2 in any order.
Descriptor Above(Descriptor low) {
    if (low.Get() > STDERR_FILENO) {
        return low;
    }
    Descriptor high(fcntl(low.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!high.IsOpen()) {
        Fail(errno, "cannot duplicate a descriptor");
    }
    return high;
}

Pipe MakePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        Fail(errno, "cannot make a pipe");
    }
    Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    return {Above(std::move(readEnd)), Above(std::move(writeEnd))};
}

Descriptor OpenPath(const std::string& path, int flags) {
    Descriptor opened(open(path.c_str(), flags | O_CLOEXEC, 0666));
    if (!opened.IsOpen()) {
        Fail(errno, "cannot open " + path);
    }
    return Above(std::move(opened));
}

// The child's standard streams (not open: closed there) and this side's ends of the pipes.
struct Streams {
    std::array<Descriptor, 3> child;
    Descriptor output;
    Descriptor error;
};

Descriptor InputStream(const ProgramRun& run) {
    if (run.closedInput) {
        return {};
    }
    if (!run.input) {
        return OpenPath("/dev/null", O_RDONLY);
    }
    if (run.input->size() > kMostInput) {
        throw std::invalid_argument("the input does not fit into a pipe");
    }
    // All of it fits, and the reading end is open, so this neither blocks nor raises SIGPIPE.
    Pipe pipe = MakePipe();
    if (write(pipe.writeEnd.Get(), run.input->data(), run.input->size()) !=
        static_cast<ssize_t>(run.input->size())) {
        Fail(errno, "cannot write the input");
    }
    return std::move(pipe.readEnd);
}

Streams MakeStreams(const ProgramRun& run) {
    Streams streams;
    streams.child[0] = InputStream(run);
    if (run.brokenOutput) {
        streams.child[1] = MakePipe().writeEnd;
    } else if (!run.outputPath.empty()) {
        streams.child[1] = OpenPath(run.outputPath, O_WRONLY | O_CREAT);
    } else if (!run.closedOutput) {
        Pipe pipe = MakePipe();
        streams.child[1] = std::move(pipe.writeEnd);
        streams.output = std::move(pipe.readEnd);
    }
    if (run.mergedOutput) {
        if (!streams.output.IsOpen() || run.closedError || !run.errorPath.empty()) {
            throw std::invalid_argument("merged output needs both streams captured");
        }
        streams.child[2] = Descriptor(fcntl(streams.child[1].Get(), F_DUPFD_CLOEXEC, 3));
        if (!streams.child[2].IsOpen()) {
            Fail(errno, "cannot duplicate a descriptor");
        }
    } else if (!run.errorPath.empty()) {
        streams.child[2] = OpenPath(run.errorPath, O_WRONLY | O_CREAT);
    } else if (!run.closedError) {
        Pipe pipe = MakePipe();
        streams.child[2] = std::move(pipe.writeEnd);
        streams.error = std::move(pipe.readEnd);
    }
    return streams;
}

bool Names(const std::string& entry, std::string_view name) {
    return entry.size() > name.size() && entry[name.size()] == '=' && entry.starts_with(name);
}

std::vector<std::string> MakeEnvironment(const ProgramRun& run) {
    std::vector<std::string> environment = run.environment;
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        const char* value = getenv(name);
        const bool given =
            std::any_of(environment.begin(), environment.end(),
                        [name](const std::string& entry) { return Names(entry, name); });
        if (value != nullptr && !given) {
            environment.push_back(std::string(name) + "=" + value);
        }
    }
    if (!run.preloadLibrary.empty()) {
        environment.push_back("LD_PRELOAD=" + run.preloadLibrary);
        // The sanitizer's own library must be loaded first; this check of it can be switched off.
        const auto options =
            std::find_if(environment.begin(), environment.end(),
                         [](const std::string& entry) { return Names(entry, "ASAN_OPTIONS"); });
        if (options != environment.end()) {
            *options += ":verify_asan_link_order=0";
        } else {
            environment.emplace_back("ASAN_OPTIONS=verify_asan_link_order=0");
        }
    }
    return environment;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// What the child needs, made before it exists.
struct ChildPlan {
    const ProgramRun& run;
    char* const* arguments;
    char* const* environment;
    std::array<int, 3> streams;
    int report;
};

// Replaces the child by the program; comes back only when that failed, with errno set.
void BecomeProgram(const ChildPlan& plan) {
    // A group of its own, so that the deadline reaches grandchildren too.
    if (setpgid(0, 0) != 0) {
        return;
    }
    for (int number = 0; number < 3; ++number) {
        const int source = plan.streams[static_cast<std::size_t>(number)];
        if (source < 0) {
            close(number);
        } else if (dup2(source, number) < 0) {
            return;
        }
    }
    sigset_t none;
    sigemptyset(&none);
    if (sigprocmask(SIG_SETMASK, &none, nullptr) != 0 || signal(SIGPIPE, SIG_DFL) == SIG_ERR) {
        return;
    }
    if (!plan.run.directory.empty() && chdir(plan.run.directory.c_str()) != 0) {
        return;
    }
    for (const auto& [resource, soft] : plan.run.limits) {
        rlimit limit{};
        // The resource's type is an enumeration of its own in C++.
        const auto which = static_cast<__rlimit_resource>(resource);
        if (getrlimit(which, &limit) != 0) {
            return;
        }
        limit.rlim_cur = soft;
        if (setrlimit(which, &limit) != 0) {
            return;
        }
    }
    execve(plan.run.program.c_str(), plan.arguments, plan.environment);
}

[[noreturn]] void RunChild(const ChildPlan& plan) {
    BecomeProgram(plan);
    const int error = errno;
    static_cast<void>(!write(plan.report, &error, sizeof error));
    _exit(127);
}

// Ends and collects the child when something throws before that was done in the ordinary way.
class Child {
  public:
    explicit Child(pid_t pid) : pid_(pid) {}
    ~Child() {
        if (pid_ > 0) {
            Kill();
            Wait();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] pid_t Pid() const { return pid_; }

    void Kill() const {
        kill(-pid_, SIGKILL);
        kill(pid_, SIGKILL);
    }

    void Wait() { Collect(0); }

    int status = 0;
    rusage usage{};

  private:
    pid_t pid_;

    bool Collect(int flags) {
        pid_t got = -1;
        do {
            got = wait4(pid_, &status, flags, &usage);
        } while (got < 0 && errno == EINTR);
        if (got == 0) {
            return false;
        }
        pid_ = -1;
        return true;
    }
};

// Adds what is there to `text`; closes the descriptor at the end of the stream.
void ReadSome(Descriptor& from, std::string& text) {
    std::array<char, 65536> buffer;
    const ssize_t got = read(from.Get(), buffer.data(), buffer.size());
    if (got > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    } else if (got == 0 || errno != EINTR) {
        from.Close();
    }
}

int RemainingMs(Clock::time_point end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 3600000));
}

// Waits for something to read, the child's end, or the deadline.
void WaitForNews(Streams& streams, const Descriptor& childHandle, Clock::time_point end,
                 ProgramResult& result) {
    std::array<pollfd, 3> watched{{{streams.output.Get(), POLLIN, 0},
                                   {streams.error.Get(), POLLIN, 0},
                                   {childHandle.Get(), POLLIN, 0}}};
    // A kernel without process descriptors leaves only asking now and then.
    const int remaining = RemainingMs(end);
    const int wait = childHandle.IsOpen() ? remaining : std::min(remaining, kPollStepMs);
    if (poll(watched.data(), watched.size(), wait) <= 0) {
        return;
    }
    if (watched[0].revents != 0) {
        ReadSome(streams.output, result.output);
    }
    if (watched[1].revents != 0) {
        ReadSome(streams.error, result.error);
    }
}

void Attend(Child& child, Streams& streams, Clock::time_point end, ProgramResult& result) {
    const Descriptor handle(static_cast<int>(syscall(SYS_pidfd_open, child.Pid(), 0)));
    bool ended = false;
    while (streams.output.IsOpen() || streams.error.IsOpen() || !ended) {
        if (Clock::now() >= end) {
            result.timedOut = true;
            break;
        }
        if (ended) {
            // Its pipes may still be held by a grandchild: only they are waited for now.
            const Descriptor none;
            WaitForNews(streams, none, end, result);
        } else {
            WaitForNews(streams, handle, end, result);
            // Kept uncollected while it is a zombie, so that its group can still be named.
            siginfo_t info{};
            ended = waitid(P_PID, static_cast<id_t>(child.Pid()), &info,
                           WEXITED | WNOHANG | WNOWAIT) == 0 &&
                    info.si_pid != 0;
        }
    }
    if (result.timedOut) {
        child.Kill();
    }
    child.Wait();
}

}  // namespace

ProgramResult RunProgram(const ProgramRun& run) {
    Streams streams = MakeStreams(run);
    Pipe report = MakePipe();
    std::vector<std::string> argumentTexts{run.program};
    for (const std::string& argument : run.arguments) {
        argumentTexts.push_back(argument);
    }
    std::vector<std::string> environmentTexts = MakeEnvironment(run);
    const std::vector<char*> arguments = Pointers(argumentTexts);
    const std::vector<char*> environment = Pointers(environmentTexts);
    const ChildPlan plan{run,
                         arguments.data(),
                         environment.data(),
                         {streams.child[0].Get(), streams.child[1].Get(), streams.child[2].Get()},
                         report.writeEnd.Get()};

    const Clock::time_point end = Clock::now() + run.deadline;
    const pid_t pid = fork();
    if (pid < 0) {
        Fail(errno, "cannot fork");
    }
    if (pid == 0) {
        RunChild(plan);
    }
    Child child(pid);
    for (Descriptor& stream : streams.child) {
        stream.Close();
    }
    report.writeEnd.Close();

    std::string failure;
    while (report.readEnd.IsOpen()) {
        ReadSome(report.readEnd, failure);
    }
    if (failure.size() == sizeof(int)) {
        child.Wait();
        int error = 0;
        failure.copy(reinterpret_cast<char*>(&error), sizeof error);
        Fail(error, "cannot run " + run.program);
    }

    ProgramResult result;
    Attend(child, streams, end, result);
    if (WIFEXITED(child.status)) {
        result.status = WEXITSTATUS(child.status);
    } else if (WIFSIGNALED(child.status)) {
        result.signal = WTERMSIG(child.status);
    }
    result.peakKiB = child.usage.ru_maxrss;
    return result;
}
