#include "TraceData/text/OutputSupport.h"

#include <cstddef>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/text/Columns.h"

namespace {

constexpr std::size_t kHeaderLineLength = 127;

std::string BuildColumnHeader() {
    CFastStr<128> line;
    for (const TextColumn& column : kTextColumns) {
        line.Append('#');
        line.Append(column.title);
        line.Append(' ', column.titleWidth - column.title.size());
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
