#include "Support/ValidationException.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <ostream>
#include <string>

#include "Support/DropFailure.h"
#include "Support/Logging.h"

namespace {

// A failure that cannot be logged must not replace the failure itself.
template <typename... Pieces>
void EchoToDiagnosticLog(const Pieces&... pieces) noexcept {
    if (Logging::GetDiagnosticMode() != Logging::kDiagnosticModeOn) {
        return;
    }
    DropFailure([&] {
        Logging log;
        (log << ... << pieces);
        log << std::endl;
    });
}

// Raises the failure of a check, whose text `compose` returns.
template <typename E, typename Compose>
[[noreturn]] void Raise(const Compose& compose, const char* file, unsigned int line) {
    try {
        throw ExtendedException<E>(compose(), file, line);
    } catch (const GenericExtendedException& failure) {
        EchoToDiagnosticLog("Extended exception:", failure.file, ":", failure.line, "-",
                            failure.what());
        throw;
    } catch (const std::exception& failure) {
        // There was no memory for it.
        EchoToDiagnosticLog("Exception:", failure.what());
        throw;
    }
}

}  // namespace

void Validation2Exception::FailLogic(const char* message, const char* file, unsigned int line) {
    Raise<std::logic_error>([=] { return std::string("Bad logic:") + message; }, file, line);
}

void Validation2Exception::FailParameter(const char* message, const char* file, unsigned int line) {
    Raise<std::logic_error>([=] { return std::string("Bad parameter:") + message; }, file, line);
}

void Validation2Exception::FailMemoryAllocation(const char* message, const char* file,
                                                unsigned int line) {
    Raise<std::runtime_error>([=] { return std::string("Memory allocation failed:") + message; },
                              file, line);
}

void Validation2Exception::FailOSCall(const char* message, const char* file, unsigned int line) {
    const int error = errno;
    Raise<std::runtime_error>(
        [=] {
            std::array<char, 1024> buffer{};
            const char* systemText = strerror_r(error, buffer.data(), buffer.size());
            return std::string(message) + " [OS call failed:" + std::to_string(error) + "(" +
                   systemText + ")]";
        },
        file, line);
}
