#include "targets/Support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace {

std::string Shown(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
            shown += character;
        } else {
            shown += '\\';
            shown += kDigits[byte >> 4U];
            shown += kDigits[byte & 0xFU];
        }
    }
    return shown;
}

[[noreturn]] void ThrowSystemError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

void RequireEqual(std::string_view actual, std::string_view expected, const char* message) {
    if (actual != expected) {
        throw FuzzMismatch(std::string(message) + "\nactual:   " + Shown(actual) +
                           "\nexpected: " + Shown(expected));
    }
}

std::string_view FuzzScript::Bytes(std::size_t count) noexcept {
    count = std::min(count, rest_.size());
    if (count == 0) {
        return {};
    }
    const std::string_view bytes(reinterpret_cast<const char*>(rest_.data()), count);
    rest_ = rest_.subspan(count);
    return bytes;
}

std::uint8_t FuzzScript::U8() noexcept {
    const std::string_view byte = Bytes(1);
    return byte.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(byte.front());
}

std::uint16_t FuzzScript::U16() noexcept {
    const unsigned int low = U8();
    return static_cast<std::uint16_t>(low | unsigned{U8()} << 8U);
}

std::uint32_t FuzzScript::U32() noexcept {
    const std::uint32_t low = U16();
    return low | std::uint32_t{U16()} << 16U;
}

MemoryFile::MemoryFile() : file_(memfd_create("zynfuzz", MFD_CLOEXEC)) {
    if (file_ == -1) {
        ThrowSystemError("memfd_create");
    }
    path_ = "/proc/self/fd/" + std::to_string(file_);
}

MemoryFile::~MemoryFile() { close(file_); }

std::string MemoryFile::Content() const {
    std::string content;
    std::array<char, 4096> piece;
    while (true) {
        const ssize_t count =
            pread(file_, piece.data(), piece.size(), static_cast<off_t>(content.size()));
        if (count < 0) {
            ThrowSystemError("pread");
        }
        if (count == 0) {
            return content;
        }
        content.append(piece.data(), static_cast<std::size_t>(count));
    }
}

void MemoryFile::SetContent(std::string_view content) const {
    if (ftruncate(file_, 0) != 0) {
        ThrowSystemError("ftruncate");
    }
    while (!content.empty()) {
        const off_t end = lseek(file_, 0, SEEK_END);
        const ssize_t count = pwrite(file_, content.data(), content.size(), end);
        if (count < 0) {
            ThrowSystemError("pwrite");
        }
        content.remove_prefix(static_cast<std::size_t>(count));
    }
}
