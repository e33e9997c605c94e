// An application that links the client programming interface and forks while the library's threads
// run. For concurrency_test.py: prints what happens line by line, and waits for a line of input
// before it forks.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <string>
#include <thread>

#include "ZynANSIAPI/ZynANSIAPI.h"

namespace {

void Say(const char* who, const char* what, int value) {
    std::cout << who << ' ' << what << ' ' << value << std::endl;
}

void TellStatus(const char* who, int module, int label) {
    Say(who, "enabled", ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label));
    int again = -1;
    static_cast<void>(ZynGetModuleHandle("Net", &again));
    Say(who, "same handle", again == module ? 1 : 0);
    Say(who, "pause", ZynPause());
}

}  // namespace

int main() {
    int module = -1;
    int label = -1;
    Say("host", "module", ZynGetModuleHandle("Net", &module));
    Say("host", "label", ZynGetLabelHandle("Info", &label));
    Say("host", "enabled", ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label));

    std::string line;
    std::getline(std::cin, line);
    std::atomic<bool> stop{false};
    std::thread querying([&stop, module, label] {
        while (!stop) {
            static_cast<void>(ZynTraceEnabledEx(module, ZYN_NO_CLIENT, label));
        }
    });
    const pid_t child = fork();
    if (child == 0) {
        TellStatus("child", module, label);
        // As programs do that end without running what their parent registered.
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    Say("host", "child", status);
    stop = true;
    querying.join();
    TellStatus("host", module, label);
    // A second fork finds the connection closed, and a child that ends in the ordinary way takes
    // nothing down with it.
    if (fork() == 0) {
        return 0;
    }
    wait(&status);
    Say("host", "second child", status);
    return 0;
}
