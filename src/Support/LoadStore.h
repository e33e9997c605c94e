// Loads and stores of little-endian integers at any address, for bytes that come from files and
// shared regions.
#ifndef ZYN_SUPPORT_LOADSTORE_H
#define ZYN_SUPPORT_LOADSTORE_H

#include <bit>
#include <concepts>
#include <cstring>

static_assert(std::endian::native == std::endian::little,
              "files and regions are little-endian, as is every machine the facility runs on");

// The caller guarantees sizeof(T) readable bytes at source; no alignment is needed.
template <std::integral T>
[[nodiscard]] inline T LoadLittleEndian(const char* source) noexcept {
    T value;
    std::memcpy(&value, source, sizeof value);
    return value;
}

template <std::integral T>
inline void StoreLittleEndian(char* destination, T value) noexcept {
    std::memcpy(destination, &value, sizeof value);
}

#endif
