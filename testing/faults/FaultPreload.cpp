// Preloaded into a program under test, makes the calls fail that the environment names. Counting
// begins with the program's main, so what the runtime of C++ does before it is left alone.
//
//   ZYN_FAULT_CALL    a name of LibcCalls.h; without it nothing fails
//   ZYN_FAULT_FIRST   the first call that is touched, counted from 1
//   ZYN_FAULT_COUNT   how many calls in a row, or "all"
//   ZYN_FAULT_ACTION  an errno number (0: the call goes on), "half" or "zero" (a short count),
//                     "kill" or "stop" (the program is sent SIGKILL or SIGSTOP ahead of the call,
//                     which then is made), "stop-behind" (SIGSTOP once the call is made; fstat)
//   ZYN_FAULT_THREAD  "main" or "other": calls of the other threads, or of the main one, are
//                     neither counted nor touched
//   ZYN_FAULT_LOG     a file that gets a line per call that was touched, and the line "umask" when
//                     the program ends with another umask than it began with
//   ZYN_FAULT_SLEEP   the most microseconds that a usleep takes

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "testing/faults/LibcInterpose.h"

namespace {

using libccalls::Call;

constinit const char* logPath = nullptr;
constinit useconds_t longestSleep = 0;
constinit int signalToSend = 0;
constinit long umaskAtStart = -1;

struct Settings {
    const char* call;
    const char* first;
    const char* count;
    const char* action;
    const char* thread;
};

unsigned Number(const char* text) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 10);
    if (end == text || *end != '\0') {
        __builtin_trap();
    }
    return static_cast<unsigned>(number);
}

// By system calls alone, so that nothing here is counted.
void LogLine(const char* text) {
    if (logPath == nullptr) {
        return;
    }
    const long file = syscall(SYS_openat, AT_FDCWD, logPath, O_WRONLY | O_APPEND | O_CREAT, 0600);
    if (file < 0 || syscall(SYS_write, file, text, std::strlen(text)) < 0 ||
        syscall(SYS_write, file, "\n", 1) < 0) {
        __builtin_trap();
    }
    syscall(SYS_close, file);
}

void Touched(void* context) {
    const int error = errno;
    LogLine(static_cast<const char*>(context));
    if (signalToSend != 0) {
        // To this thread, which then does nothing more; any other could take the process's signal.
        syscall(SYS_tgkill, syscall(SYS_getpid), syscall(SYS_gettid), signalToSend);
    }
    errno = error;
}

long Umask() {
    const long mask = syscall(SYS_umask, 0);
    syscall(SYS_umask, mask);
    return mask;
}

// After everything of the program has run.
[[gnu::destructor]] void CompareUmask() {
    if (umaskAtStart != -1 && Umask() != umaskAtStart) {
        LogLine("umask");
    }
}

int ErrorOf(const char* action) {
    if (std::strcmp(action, "half") == 0) {
        return libccalls::kHalfCount;
    }
    if (std::strcmp(action, "zero") == 0) {
        return libccalls::kZeroCount;
    }
    if (std::strcmp(action, "kill") == 0 || std::strncmp(action, "stop", 4) == 0) {
        signalToSend = *action == 'k' ? SIGKILL : SIGSTOP;
        return 0;
    }
    return static_cast<int>(Number(action));
}

libccalls::Threads ThreadsOf(const char* thread) {
    if (thread == nullptr) {
        return libccalls::Threads::kAll;
    }
    return std::strcmp(thread, "main") == 0 ? libccalls::Threads::kThatSetThePlan
                                            : libccalls::Threads::kOthers;
}

void Arm(const Settings& settings) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(Call::kCount); ++at) {
        const char* const name = libccalls::kNames[at];
        if (std::strcmp(name, settings.call) != 0) {
            continue;
        }
        const bool all = std::strcmp(settings.count, "all") == 0;
        const bool behind = std::strcmp(settings.action, "stop-behind") == 0;
        libccalls::Set(static_cast<Call>(at), {.first = Number(settings.first),
                                               .count = all ? ~0U : Number(settings.count),
                                               .error = ErrorOf(settings.action),
                                               .threads = ThreadsOf(settings.thread),
                                               .before = behind ? nullptr : Touched,
                                               .after = behind ? Touched : nullptr,
                                               .context = const_cast<char*>(name)});
        return;
    }
    __builtin_trap();
}

bool ShortSleep(useconds_t microseconds, int& result) {
    const useconds_t shorter = microseconds < longestSleep ? microseconds : longestSleep;
    const timespec time{static_cast<time_t>(shorter / 1000000),
                        static_cast<long>(shorter % 1000000 * 1000)};
    result = nanosleep(&time, nullptr);
    return true;
}

const char* Setting(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr) {
        __builtin_trap();
    }
    return value;
}

void ReadEnvironment() {
    umaskAtStart = Umask();
    logPath = std::getenv("ZYN_FAULT_LOG");
    if (const char* const sleep = std::getenv("ZYN_FAULT_SLEEP")) {
        longestSleep = Number(sleep);
        libccalls::sleepHook = ShortSleep;
    }
    if (const char* const call = std::getenv("ZYN_FAULT_CALL")) {
        Arm({.call = call,
             .first = Setting("ZYN_FAULT_FIRST"),
             .count = Setting("ZYN_FAULT_COUNT"),
             .action = Setting("ZYN_FAULT_ACTION"),
             .thread = std::getenv("ZYN_FAULT_THREAD")});
    }
}

using Main = int(int, char**, char**);
constinit Main* programMain = nullptr;

#ifdef ZYN_COVERAGE
// What gcov does when the program has ended is no call of the program's.
void Disarm() {
    for (std::size_t at = 0; at < static_cast<std::size_t>(Call::kCount); ++at) {
        libccalls::Clear(static_cast<Call>(at));
    }
}
#endif

int ArmedMain(int count, char** arguments, char** environment) {
#ifdef ZYN_COVERAGE
    // The first that is registered runs last.
    if (std::atexit(Disarm) != 0) {
        __builtin_trap();
    }
#endif
    ReadEnvironment();
    return programMain(count, arguments, environment);
}

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the library's own name
extern "C" int __libc_start_main(Main* main, int count, char** arguments, void (*init)(),
                                 void (*fini)(), void (*linkerFini)(), void* stackEnd) {
    static constinit libccalls::Real<int(Main*, int, char**, void (*)(), void (*)(), void (*)(),
                                         void*)>
        real("__libc_start_main");
    programMain = main;
    return real()(ArmedMain, count, arguments, init, fini, linkerFini, stackEnd);
}
