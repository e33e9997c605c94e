// The widths of a line's columns in fixed-width mode, one blank between two of them. The line, its
// header and the further lines of a message are laid out by them.
#ifndef ZYN_TRACEDATA_TEXT_COLUMNS_H
#define ZYN_TRACEDATA_TEXT_COLUMNS_H

#include <cstdint>

inline constexpr std::uint32_t kTimeWidth = 23;
inline constexpr std::uint32_t kProcessWidth = 5;
inline constexpr std::uint32_t kThreadWidth = 10;
inline constexpr std::uint32_t kModuleWidth = 12;
inline constexpr std::uint32_t kClientWidth = 10;
inline constexpr std::uint32_t kLabelWidth = 12;

// Where the message begins: behind six columns, each with its blank.
inline constexpr std::uint32_t kMessageColumn =
    kTimeWidth + kProcessWidth + kThreadWidth + kModuleWidth + kClientWidth + kLabelWidth + 6;

#endif
