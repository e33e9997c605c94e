// An application that traces: it takes handles, registers a client, and checks before each trace
// call whether the call is wanted. Says so each time the answer changes, as it does when the
// service passes on a pause, a resume or a changed configuration. Ends with its input. Usage:
// zyntraced-app <module> <client> <label>

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "ZynANSIAPI/ZynANSIAPI.h"

namespace {

// Any number below 70, one per client name.
constexpr unsigned int kClient = 3;
constexpr int kWorkMs = 5;

// What the application does between two trace calls: here, waiting for input. False at its end.
bool Work() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, kWorkMs) <= 0) {
        return true;
    }
    std::array<char, 256> bytes{};
    return ::read(STDIN_FILENO, bytes.data(), bytes.size()) > 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        static_cast<void>(std::fputs("usage: zyntraced-app <module> <client> <label>\n", stderr));
        return 2;
    }
    // Lines are read by other programs while this one runs.
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ));

    int module = -1;
    int label = -1;
    if (ZynGetModuleHandle(argv[1], &module) != 0 || ZynGetLabelHandle(argv[3], &label) != 0 ||
        ZynRegisterClient(module, kClient, argv[2]) != 0) {
        static_cast<void>(std::fputs("zyntraced-app: no handles; see the system log\n", stderr));
        return 1;
    }

    int known = -1;
    do {
        const int enabled = ZynTraceEnabledEx(module, kClient, label);
        if (enabled != known) {
            known = enabled;
            static_cast<void>(std::puts(enabled != 0 ? "tracing enabled" : "tracing disabled"));
        }
    } while (Work());
    return 0;
}
