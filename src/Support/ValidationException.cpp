#include "Support/ValidationException.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "Support/Logging.h"

namespace {

// A failure that cannot be logged must not replace the failure itself.
void EchoToDiagnosticLog(const GenericExtendedException& failure) noexcept {
    if (Logging::GetDiagnosticMode() != Logging::kDiagnosticModeOn) {
        return;
    }
    try {
        Logging log;
        log << "Extended exception:" << failure.file << ":" << failure.line << "-"
            << failure.what();
        log << std::endl;
    } catch (...) {  // NOLINT(bugprone-empty-catch): out of memory while reporting
    }
}

template <typename E>
[[noreturn]] void Raise(const std::string& text, const char* file, unsigned int line) {
    try {
        throw ExtendedException<E>(text, file, line);
    } catch (const GenericExtendedException& failure) {
        EchoToDiagnosticLog(failure);
        throw;
    }
}

}  // namespace

void Validation2Exception::FailLogic(const char* message, const char* file, unsigned int line) {
    Raise<std::logic_error>(std::string("Bad logic:") + message, file, line);
}

void Validation2Exception::FailParameter(const char* message, const char* file, unsigned int line) {
    Raise<std::logic_error>(std::string("Bad parameter:") + message, file, line);
}

void Validation2Exception::FailMemoryAllocation(const char* message, const char* file,
                                                unsigned int line) {
    Raise<std::runtime_error>(std::string("Memory allocation failed:") + message, file, line);
}

void Validation2Exception::FailOSCall(const char* message, const char* file, unsigned int line) {
    const int error = errno;
    std::array<char, 1024> buffer{};
    const char* systemText = strerror_r(error, buffer.data(), buffer.size());
    Raise<std::runtime_error>(std::string(message) + " [OS call failed:" + std::to_string(error) +
                                  "(" + systemText + ")]",
                              file, line);
}
