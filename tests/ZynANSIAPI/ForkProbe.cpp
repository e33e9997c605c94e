// An application that forks in the ways that a test names:
//   handlers             with fork handlers of its own that use the interface, before and behind
//                        the library's; prints what each of them got
//   first ROUNDS SEED    at random moments, while its threads make the first calls of the process
//   orders ROUNDS SEED   at random moments, connected, while orders may come
//   crowd fork|exit      at the end of its input, while eight threads wait for their requests;
//                        or ends then
// Rounds run in processes of their own, several at a time. A process that hangs is ended by its
// alarm clock. How a round failed is printed on a line of its own, before the line that counts
// them.
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <new>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "ZynANSIAPI/ZynANSIAPI.h"

// A child has the threads of its parent on ThreadSanitizer's list, and may start some of its own.
extern "C" const char* __tsan_default_options();   // NOLINT: the sanitizer's name
extern "C" const char* __tsan_default_options() {  // NOLINT
    return "die_after_fork=0:report_thread_leaks=0";
}

namespace {

constexpr unsigned kHangsAfterSeconds = 20;

// The runtimes of the sanitizers do not survive a fork amid threads: AddressSanitizer's allocator
// stays locked in the child for ever if another thread was within it, and ThreadSanitizer ends a
// child whose own thread gets the number of one of its parent's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kChildIsWhole = false;
#else
constexpr bool kChildIsWhole = true;
#endif

void Say(const std::string& line) {
    const std::string text = line + "\n";
    static_cast<void>(::write(STDOUT_FILENO, text.data(), text.size()));
}

void AwaitEndOfInput() {
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

int Handle() {
    int module = -1;
    return ZynGetModuleHandle("M", &module);
}

int Query() {
    int module = -1;
    int label = -1;
    static_cast<void>(ZynGetModuleHandle("M", &module));
    static_cast<void>(ZynGetLabelHandle("On", &label));
    return ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label);
}

// What the fork handlers got; each process has its own from the fork on.
bool recording = false;
std::string record;
int module = -1;
int label = -1;

void Record(const char* handler) {
    if (recording) {
        // The query comes first: a handle may be added to the tables.
        const int query = ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label);
        record += std::string(handler) + ": query " + std::to_string(query) + ", handle " +
                  std::to_string(Handle()) + ", request " + std::to_string(ZynResume()) + "\n";
    }
}

// As early as the library registers its own, and linked in front of it.
[[gnu::constructor(101)]] void RegisterEarlyHandlers() {
    ::pthread_atfork([] { Record("early prepare"); }, [] { Record("early parent"); },
                     [] {
                         // Of the fork's end in the child, too.
                         ::alarm(kHangsAfterSeconds);
                         Record("early child");
                     });
}

int Handlers() {
    ::pthread_atfork([] { Record("late prepare"); }, [] { Record("late parent"); },
                     [] { Record("late child"); });
    static_cast<void>(ZynGetModuleHandle("M", &module));
    static_cast<void>(ZynGetLabelHandle("On", &label));
    recording = true;
    ::alarm(kHangsAfterSeconds);
    const pid_t child = ::fork();
    if (child == 0) {
        Say(record + "end of child");
        return 0;
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    Say(record + "child status " + std::to_string(status));
    return 0;
}

std::string StatusText(int status) {
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "status " + std::to_string(WEXITSTATUS(status));
}

// What a process did so far: lies in memory of all processes, to be read when that one was killed.
class Journal {
  public:
    void Note(const std::string& step) {
        const std::string text = (used_ == 0 ? "" : ", ") + step;
        used_ += text.copy(text_.data() + used_, text_.size() - used_);
    }
    // A call that has not come back stands there without its result.
    template <typename Call>
    int Note(const std::string& name, Call call) {
        Note(name);
        const int result = call();
        Note(std::to_string(result));
        return result;
    }
    [[nodiscard]] std::string Text() const { return {text_.data(), used_}; }

  private:
    std::array<char, 1000> text_{};
    std::size_t used_ = 0;
};

// Of one round: its process, and the child that this one forks.
struct Round {
    Journal parent;
    Journal child;
};

class SharedRounds {
  public:
    explicit SharedRounds(std::size_t count)
        : bytes_(count * sizeof(Round)),
          address_(
              ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (address_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
        rounds_ = {new (address_) Round[count], count};
    }
    SharedRounds(const SharedRounds&) = delete;
    SharedRounds& operator=(const SharedRounds&) = delete;
    ~SharedRounds() { ::munmap(address_, bytes_); }

    Round& operator[](std::size_t index) { return rounds_[index]; }

  private:
    std::size_t bytes_;
    void* address_;
    std::span<Round> rounds_;
};

int StatusOf(pid_t process) {
    int status = -1;
    ::waitpid(process, &status, 0);
    return status;
}

// The child has an alarm clock of its own, so this process's may stand still meanwhile.
int AwaitChild(pid_t child, Journal& journal) {
    ::alarm(0);
    const int status = StatusOf(child);
    ::alarm(kHangsAfterSeconds);
    journal.Note("its child ended with " + StatusText(status));
    return status;
}

// A call that connects fails once the service had 2 s to confirm: each sender empties the service's
// ring, another's message in it included. The next call tries again, and so does this. No other
// failure is one to be repeated.
int UntilConfirmed(Journal& journal, const std::string& name, int (*call)()) {
    constexpr int kAttempts = 10;
    constexpr std::chrono::seconds kUnconfirmed{2};
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        ::alarm(kHangsAfterSeconds);
        const auto start = std::chrono::steady_clock::now();
        if (journal.Note(name, call) == 0) {
            return 0;
        }
        if (std::chrono::steady_clock::now() - start < kUnconfirmed) {
            journal.Note("failed at once");
            return 1;
        }
    }
    return 1;
}

// What a child that was forked at some moment has to be able to do.
int UseInterface(Journal& journal) {
    journal.Note("request", ZynResume);
    const int handle = UntilConfirmed(journal, "handle", Handle);
    ::alarm(kHangsAfterSeconds);
    journal.Note("query", Query);
    journal.Note("end");
    return handle;
}

void Pause(std::minstd_rand& random, unsigned maximumMicroseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % maximumMicroseconds));
}

// One process whose threads make its first calls while it forks.
int ForkAmidFirstCalls(std::minstd_rand random, Round& round) {
    std::vector<std::thread> threads;
    for (unsigned long count = 1 + random() % 4; count > 0; --count) {
        threads.emplace_back([kind = random() % 3] {
            kind == 0 ? Query() : kind == 1 ? Handle() : ZynResume();
        });
    }
    Pause(random, 2000);
    round.parent.Note("fork");
    const pid_t child = ::fork();
    if (child == 0) {
        if (!kChildIsWhole) {
            std::_Exit(0);
        }
        // The child may be connected itself, if it was forked before anything of the library was
        // there: it ends the ordinary way, though without joining threads that it does not have.
        std::exit(UseInterface(round.child));  // NOLINT(concurrency-mt-unsafe)
    }
    const int status = AwaitChild(child, round.parent);
    for (std::thread& thread : threads) {
        thread.join();
    }
    round.parent.Note("end");
    return status == 0 ? 0 : 1;
}

// One process that is connected and forks while orders come. The configuration stays as it is, so
// what it enables is enabled in parent and child.
int ForkAmidOrders(std::minstd_rand random, Round& round) {
    // Nothing is enabled in the middle of a reload.
    round.parent.Note("connect");
    while (Query() != 1) {
        Pause(random, 1000);
    }
    Pause(random, 300'000);
    round.parent.Note("fork");
    const pid_t child = ::fork();
    if (child == 0) {
        const int result = UseInterface(round.child);
        std::_Exit(result == 0 && round.child.Note("query", Query) == 1 ? 0 : 1);
    }
    const int status = AwaitChild(child, round.parent);
    const int query = round.parent.Note("query", Query);
    return status == 0 && query == 1 ? 0 : 1;
}

// Says of each round that failed how its processes ended, and how far they had come. The first that
// fail are the last.
int Rounds(const std::function<int(std::minstd_rand, Round&)>& run, std::size_t count,
           unsigned seed, std::size_t atOnce) {
    std::minstd_rand random(seed);
    SharedRounds rounds(count);
    std::size_t failed = 0;
    std::size_t done = 0;
    for (; done < count && failed == 0; done += atOnce) {
        std::vector<pid_t> processes;
        for (std::size_t at = done; at < std::min(done + atOnce, count); ++at) {
            const std::minstd_rand own(static_cast<unsigned>(random()));
            const pid_t process = ::fork();
            if (process == 0) {
                std::exit(run(own, rounds[at]));  // NOLINT(concurrency-mt-unsafe)
            }
            processes.push_back(process);
        }
        for (std::size_t at = done; at < done + processes.size(); ++at) {
            const int status = StatusOf(processes[at - done]);
            if (status != 0) {
                ++failed;
                Say("round " + std::to_string(at) + ": " + StatusText(status) + " [" +
                    rounds[at].parent.Text() + "] child [" + rounds[at].child.Text() + "]");
            }
        }
    }
    Say("rounds " + std::to_string(std::min(done, count)) + ", failed " + std::to_string(failed));
    return 0;
}

int Crowd(bool forks) {
    std::atomic<int> failures{0};
    std::atomic<int> ended{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            failures += ZynPause();
            ++ended;
        });
    }
    AwaitEndOfInput();
    if (!forks) {
        for (std::thread& thread : threads) {
            thread.detach();
        }
        // Not from main, whose variables the threads use.
        std::exit(0);  // NOLINT(concurrency-mt-unsafe)
    }
    const pid_t child = ::fork();
    if (child == 0) {
        Journal journal;
        std::_Exit(kChildIsWhole ? UseInterface(journal) : 0);
    }
    Say("child status " + std::to_string(StatusOf(child)));
    for (std::thread& thread : threads) {
        thread.join();
    }
    Say("failures " + std::to_string(failures));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string scenario = arguments.empty() ? "" : arguments[0];
    if (scenario == "handlers") {
        return Handlers();
    }
    if (scenario == "crowd" && arguments.size() == 2) {
        return Crowd(arguments[1] == "fork");
    }
    if (arguments.size() == 3) {
        const std::size_t rounds = std::stoul(arguments[1]);
        const auto seed = static_cast<unsigned>(std::stoul(arguments[2]));
        if (scenario == "first") {
            return Rounds(ForkAmidFirstCalls, rounds, seed, 10);
        }
        if (scenario == "orders") {
            // One sender at a time: each empties the service's ring, another's message in it
            // included.
            return Rounds(ForkAmidOrders, rounds, seed, 1);
        }
    }
    return 2;
}
