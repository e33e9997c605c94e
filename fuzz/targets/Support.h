// What the fuzz targets share: the verdict, the reading of an input as a script, and files that
// exist in memory only.
#ifndef ZYN_FUZZ_TARGETS_SUPPORT_H
#define ZYN_FUZZ_TARGETS_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "targets/Targets.h"

// The program does not do what the model does. Ends a fuzzing run, and fails a test.
class FuzzMismatch : public std::logic_error {
  public:
    using std::logic_error::logic_error;
};

inline void Require(bool condition, const char* message) {
    if (!condition) {
        throw FuzzMismatch(message);
    }
}

// With both values in the message, control characters shown as "\xx".
void RequireEqual(std::string_view actual, std::string_view expected, const char* message);

// An input as a script of small numbers. Beyond its end every number is 0.
class FuzzScript {
  public:
    explicit FuzzScript(FuzzInput input) noexcept : rest_(input) {}

    [[nodiscard]] bool AtEnd() const noexcept { return rest_.empty(); }
    std::uint8_t U8() noexcept;
    std::uint16_t U16() noexcept;
    std::uint32_t U32() noexcept;
    // At most count bytes.
    std::string_view Bytes(std::size_t count) noexcept;
    std::string_view Rest() noexcept { return Bytes(rest_.size()); }

  private:
    FuzzInput rest_;
};

// A file without a name in any directory, which every program part that takes a path can open.
class MemoryFile {
  public:
    MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    [[nodiscard]] const std::string& Path() const noexcept { return path_; }
    [[nodiscard]] std::string Content() const;
    void SetContent(std::string_view content) const;

  private:
    int file_;
    std::string path_;
};

// The text of what the function throws, empty when it throws nothing.
template <typename Function>
std::string FailureOf(Function function) {
    try {
        function();
    } catch (const FuzzMismatch&) {
        throw;
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return {};
}

#endif
