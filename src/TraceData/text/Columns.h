// The columns of a line in fixed-width mode, one blank between two of them. The line, its header
// and the further lines of a message are laid out by them.
#ifndef ZYN_TRACEDATA_TEXT_COLUMNS_H
#define ZYN_TRACEDATA_TEXT_COLUMNS_H

#include <array>
#include <cstdint>
#include <string_view>

struct TextColumn {
    std::string_view title;
    std::uint32_t width;  // of the values
    std::uint32_t titleWidth = width;
};

// Kept as is: numbers are headed one character wider than they are written.
inline constexpr TextColumn kTimeColumn{"Timestamp", 23};
inline constexpr TextColumn kProcessColumn{"PID", 5, 6};
inline constexpr TextColumn kThreadColumn{"TID", 10, 11};
inline constexpr TextColumn kModuleColumn{"Module", 12};
inline constexpr TextColumn kClientColumn{"Client", 10};
inline constexpr TextColumn kLabelColumn{"Label", 12};
// The message takes what room it needs.
inline constexpr TextColumn kMessageColumn{"Message", 0, 10};

// From left to right.
inline constexpr std::array kTextColumns{kTimeColumn,   kProcessColumn, kThreadColumn,
                                         kModuleColumn, kClientColumn,  kLabelColumn,
                                         kMessageColumn};

// Where the message begins: behind the other columns, each with its blank.
inline constexpr std::uint32_t kMessageBegin = [] {
    std::uint32_t begin = 0;
    for (const TextColumn& column : kTextColumns) {
        begin += column.width + 1;
    }
    return begin - 1;
}();

#endif
