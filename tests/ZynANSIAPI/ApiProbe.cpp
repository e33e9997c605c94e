// An application that uses the client programming interface in the ways that a test names:
//   twice          a request, and another one at the end of the input
//   fork           a request, then another in a child and in the parent after the fork
//   threads        queries on several threads until the input ends, then the number of answers that
//                  no configuration gives
//   cancel         a request on a thread that is cancelled, at the end of the input, while it waits
//   leave          returns from main while other threads still query
//   together       the first calls of the process, of all kinds, at the same time on as many
//   threads
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "ZynANSIAPI/ZynANSIAPI.h"

namespace {

void Say(const std::string& line) {
    const std::string text = line + "\n";
    [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
}

void AwaitEndOfInput() {
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

int Twice() {
    Say("first " + std::to_string(ZynPause()));
    AwaitEndOfInput();
    Say("second " + std::to_string(ZynPause()));
    return 0;
}

int Fork() {
    Say("before " + std::to_string(ZynPause()));
    const pid_t child = ::fork();
    if (child == 0) {
        Say("child " + std::to_string(ZynPause()));
        return 0;
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    Say("child status " + std::to_string(status));
    Say("parent " + std::to_string(ZynPause()));
    return 0;
}

struct Handles {
    int module = -1;
    int on = -1;
    int off = -1;
};

bool Take(Handles& handles) {
    return ZynGetModuleHandle("M", &handles.module) == 0 &&
           ZynGetLabelHandle("On", &handles.on) == 0 &&
           ZynGetLabelHandle("Off", &handles.off) == 0 &&
           ZynRegisterClient(handles.module, 1, "C") == 0;
}

int Threads() {
    Handles handles;
    if (!Take(handles)) {
        return 1;
    }
    std::atomic<bool> stop{false};
    std::atomic<long> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                // "Off" is off in every configuration; the other label may be either.
                wrong += ZynTraceEnabledEx(handles.module, 1, handles.off);
                static_cast<void>(ZynTraceEnabledEx(handles.module, 1, handles.on));
                wrong += ZynRegisterClient(handles.module, 1, "C");
            }
        });
    }
    Say("running");
    AwaitEndOfInput();
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    Say("wrong " + std::to_string(wrong));
    Say("on " + std::to_string(ZynTraceEnabledEx(handles.module, 1, handles.on)));
    return 0;
}

int Cancel() {
    pthread_t thread{};
    int answer = -1;
    const auto request = [](void* result) -> void* {
        *static_cast<int*>(result) = ZynPause();
        pthread_testcancel();
        return nullptr;
    };
    if (pthread_create(&thread, nullptr, request, &answer) != 0) {
        return 1;
    }
    AwaitEndOfInput();
    pthread_cancel(thread);
    void* result = nullptr;
    pthread_join(thread, &result);
    Say("request " + std::to_string(answer));
    Say(result == PTHREAD_CANCELED ? "cancelled" : "returned");
    return 0;
}

int Leave() {
    Handles handles;
    if (!Take(handles)) {
        return 1;
    }
    for (int i = 0; i < 3; ++i) {
        std::thread([handles] {
            for (;;) {
                static_cast<void>(ZynTraceEnabledEx(handles.module, 1, handles.on));
            }
        }).detach();
    }
    Say("leaving");
    return 0;
}

int Together() {
    int module = -1;
    int label = -1;
    const std::vector<std::function<int()>> calls{
        [&module] { return ZynGetModuleHandle("M", &module); },
        [&label] { return ZynGetLabelHandle("On", &label); },
        [] { return ZynRegisterClient(0, 1, "C"); },
        [] { return ZynTraceEnabledEx(0, 1, 0); },
        [] { return ZynReloadConfig(); },
    };
    std::latch start(static_cast<std::ptrdiff_t>(calls.size()));
    std::vector<int> answers(calls.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            answers[i] = calls[i]();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::string line = "answers";
    for (const int answer : answers) {
        line += " " + std::to_string(answer);
    }
    Say(line);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string scenario = argc == 2 ? argv[1] : "";
    if (scenario == "twice") {
        return Twice();
    }
    if (scenario == "fork") {
        return Fork();
    }
    if (scenario == "threads") {
        return Threads();
    }
    if (scenario == "cancel") {
        return Cancel();
    }
    if (scenario == "together") {
        return Together();
    }
    return scenario == "leave" ? Leave() : 2;
}
