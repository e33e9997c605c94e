// The exceptions by which all code reports failures, and the checks that raise them. An exception
// carries the source file and line of the check beside a text that names neither, so that a user
// reads the text and the diagnostic log shows the place.
#ifndef ZYN_SUPPORT_VALIDATIONEXCEPTION_H
#define ZYN_SUPPORT_VALIDATIONEXCEPTION_H

#include <stdexcept>
#include <string>
#include <utility>

// Where a failure was detected. Mixed into every exception that the checks raise.
class GenericExtendedException {
  public:
    GenericExtendedException(std::string sourceFile, unsigned int sourceLine)
        : file(std::move(sourceFile)), line(sourceLine) {}
    GenericExtendedException(const GenericExtendedException&) = default;
    GenericExtendedException(GenericExtendedException&&) = default;
    GenericExtendedException& operator=(const GenericExtendedException&) = default;
    GenericExtendedException& operator=(GenericExtendedException&&) = default;

    [[nodiscard]] virtual const char* what() const noexcept = 0;
    virtual ~GenericExtendedException() = default;

    // As the compiler names the file: relative to the project's root.
    std::string file;
    unsigned int line;
};

// A standard exception of kind E with its place of origin. what() is the message alone.
template <typename E>
class ExtendedException : public E, public GenericExtendedException {
  public:
    ExtendedException(const std::string& message, const char* sourceFile, unsigned int sourceLine)
        : E(message), GenericExtendedException(sourceFile, sourceLine) {}

    [[nodiscard]] const char* what() const noexcept override { return E::what(); }
};

// The four checks. A true condition returns at once and touches nothing; a false one throws, after
// writing one line to the diagnostic log when diagnostic mode is on. Call them through the macros
// below, which pass the place. Any thread may call them.
//
// CheckLogic and CheckParameter throw an ExtendedException<std::logic_error>:
//   "Bad logic:<message>"
//   "Bad parameter:<message>"
// CheckMemoryAllocation and CheckOSCall throw an ExtendedException<std::runtime_error>:
//   "Memory allocation failed:<message>"
//   "<message> [OS call failed:<errno>(<system text>)]"
class Validation2Exception {
  public:
    Validation2Exception() = delete;

    static void CheckLogic(bool condition, const char* message, const char* file,
                           unsigned int line) {
        if (!condition) [[unlikely]] {
            FailLogic(message, file, line);
        }
    }
    static void CheckParameter(bool condition, const char* message, const char* file,
                               unsigned int line) {
        if (!condition) [[unlikely]] {
            FailParameter(message, file, line);
        }
    }
    static void CheckMemoryAllocation(bool condition, const char* message, const char* file,
                                      unsigned int line) {
        if (!condition) [[unlikely]] {
            FailMemoryAllocation(message, file, line);
        }
    }
    // Reads errno first of all: nothing may stand between the failed call and this check.
    static void CheckOSCall(bool condition, const char* message, const char* file,
                            unsigned int line) {
        if (!condition) [[unlikely]] {
            FailOSCall(message, file, line);
        }
    }

    // The failure of a logic check whose condition the caller has looked at already.
    [[noreturn, gnu::cold]] static void FailLogic(const char* message, const char* file,
                                                  unsigned int line);

  private:
    [[noreturn, gnu::cold]] static void FailParameter(const char* message, const char* file,
                                                      unsigned int line);
    [[noreturn, gnu::cold]] static void FailMemoryAllocation(const char* message, const char* file,
                                                             unsigned int line);
    [[noreturn, gnu::cold]] static void FailOSCall(const char* message, const char* file,
                                                   unsigned int line);
};

#define ZYN_CHECK_LOGIC(condition, message) \
    Validation2Exception::CheckLogic((condition), (message), __FILE__, __LINE__)
#define ZYN_FAIL_LOGIC(message) Validation2Exception::FailLogic((message), __FILE__, __LINE__)
#define ZYN_CHECK_PARAMETER(condition, message) \
    Validation2Exception::CheckParameter((condition), (message), __FILE__, __LINE__)
#define ZYN_CHECK_MEMORY_ALLOCATION(condition, message) \
    Validation2Exception::CheckMemoryAllocation((condition), (message), __FILE__, __LINE__)
#define ZYN_CHECK_OS_CALL(condition, message) \
    Validation2Exception::CheckOSCall((condition), (message), __FILE__, __LINE__)

// Hooks for debug builds: they mark what a function is about to read or write, and do nothing.
template <typename T>
constexpr void ASSERT_READABLE(const T* /*pointer*/, unsigned int /*size*/) noexcept {}
template <typename T>
constexpr void ASSERT_WRITABLE(T* /*pointer*/, unsigned int /*size*/) noexcept {}

// Whether a caller's pointer can be used at all; the size is not looked at.
template <typename T>
[[nodiscard]] constexpr bool IS_READABLE_STRING(const T* pointer, unsigned int /*size*/) noexcept {
    return pointer != nullptr;
}
template <typename T>
[[nodiscard]] constexpr bool IS_WRITABLE(T* pointer, unsigned int /*size*/) noexcept {
    return pointer != nullptr;
}

#endif
