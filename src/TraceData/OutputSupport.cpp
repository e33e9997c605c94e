#include "TraceData/OutputSupport.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "MemoryStream/MemoryStream.h"

namespace {

struct Column {
    std::string_view title;
    std::size_t width;
};

// Widths of the fields that LegacyZynRecord writes in fixed-width mode.
constexpr std::array<Column, 7> kColumns{{{"Timestamp", 23},
                                          {"PID", 6},
                                          {"TID", 11},
                                          {"Module", 12},
                                          {"Client", 10},
                                          {"Label", 12},
                                          {"Message", 10}}};
constexpr std::size_t kHeaderLineLength = 127;

std::string BuildColumnHeader() {
    CFastStr<128> line;
    for (const Column& column : kColumns) {
        line.Append('#');
        line.Append(column.title);
        line.Append(' ', column.width - column.title.size());
    }
    line.Append(' ', kHeaderLineLength - line.Length());
    line.Append('\n');
    return std::string(line.View());
}

}  // namespace

const std::string& ZynTextFileOutputSupport::GetHeader() {
    static const std::string header = BuildColumnHeader();
    return header;
}
