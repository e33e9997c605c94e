#include "TraceData/text/OutputSupport.h"

#include <array>
#include <cstddef>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/text/Columns.h"

namespace {

struct Column {
    std::string_view title;
    std::size_t width;
};

// Kept as is: numbers are headed one character wider than they are written.
constexpr std::array<Column, 7> kColumns{{{"Timestamp", kTimeWidth},
                                          {"PID", kProcessWidth + 1},
                                          {"TID", kThreadWidth + 1},
                                          {"Module", kModuleWidth},
                                          {"Client", kClientWidth},
                                          {"Label", kLabelWidth},
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
