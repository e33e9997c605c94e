// An application that forks in the ways that a test names:
//   handlers             with fork handlers of its own that use the interface, before and behind
//                        the library's; tells what each of them got
//   first ROUNDS SEED    at random moments, while its threads make the first calls of the process
//   orders ROUNDS SEED   at random moments, connected, while orders may come
//   crowd fork|exit      at the end of its input, while eight threads wait for their requests;
//                        or ends then
// Rounds run in processes of their own, several at a time. A process that hangs is ended by its
// alarm clock, and counted.
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
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

constexpr unsigned kHangsAfterSeconds = 30;

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
                     [] { Record("early child"); });
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

// What a child that was forked at some moment has to be able to do.
int UseInterface() {
    ::alarm(kHangsAfterSeconds);
    static_cast<void>(ZynResume());
    const int handle = Handle();
    static_cast<void>(Query());
    return handle;
}

int StatusOf(pid_t process) {
    int status = -1;
    ::waitpid(process, &status, 0);
    return status;
}

void Pause(std::minstd_rand& random, unsigned maximumMicroseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % maximumMicroseconds));
}

// One process whose threads make its first calls while it forks.
int ForkAmidFirstCalls(std::minstd_rand random) {
    ::alarm(kHangsAfterSeconds);
    std::vector<std::thread> threads;
    for (unsigned long count = 1 + random() % 4; count > 0; --count) {
        threads.emplace_back([kind = random() % 3] {
            kind == 0 ? Query() : kind == 1 ? Handle() : ZynResume();
        });
    }
    Pause(random, 2000);
    const pid_t child = ::fork();
    if (child == 0) {
        // The child may be connected itself, if it was forked before anything of the library was
        // there: it ends the ordinary way, though without joining threads that it does not have.
        std::exit(UseInterface());  // NOLINT(concurrency-mt-unsafe)
    }
    const int status = StatusOf(child);
    for (std::thread& thread : threads) {
        thread.join();
    }
    return status == 0 ? 0 : 1;
}

// One process that is connected and forks while orders come. The configuration stays as it is, so
// what it enables is enabled in parent and child.
int ForkAmidOrders(std::minstd_rand random) {
    ::alarm(kHangsAfterSeconds);
    // Nothing is enabled in the middle of a reload.
    while (Query() != 1) {
        Pause(random, 1000);
    }
    Pause(random, 300'000);
    const pid_t child = ::fork();
    if (child == 0) {
        const int result = UseInterface();
        std::_Exit(result == 0 && Query() == 1 ? 0 : 1);
    }
    const int status = StatusOf(child);
    return status == 0 && Query() == 1 ? 0 : 1;
}

int Rounds(const std::function<int(std::minstd_rand)>& round, int rounds, unsigned seed,
           int atOnce) {
    std::minstd_rand random(seed);
    int failed = 0;
    for (int done = 0; done < rounds; done += atOnce) {
        std::vector<pid_t> processes;
        for (int i = 0; i < std::min(atOnce, rounds - done); ++i) {
            const std::minstd_rand own(static_cast<unsigned>(random()));
            const pid_t process = ::fork();
            if (process == 0) {
                std::exit(round(own));  // NOLINT(concurrency-mt-unsafe)
            }
            processes.push_back(process);
        }
        for (const pid_t process : processes) {
            failed += StatusOf(process) == 0 ? 0 : 1;
        }
    }
    Say("rounds " + std::to_string(rounds) + ", failed " + std::to_string(failed));
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
        std::_Exit(UseInterface());
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
        const int rounds = std::stoi(arguments[1]);
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
