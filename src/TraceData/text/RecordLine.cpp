#include "TraceData/text/RecordLine.h"

RecordLine::RecordLine(std::string_view separator) noexcept
    : separatorLength_(std::min<std::size_t>(separator.size(), kLongestSeparator)) {
    std::copy_n(separator.data(), separatorLength_, separator_.data());
    const bool shortSeparator = separatorLength_ <= kShortSeparator;
    if (separator.starts_with(' ')) {
        layout_ = shortSeparator ? Layout::kColumns : Layout::kSpacedColumns;
    } else {
        layout_ = shortSeparator ? Layout::kFields : Layout::kSpacedFields;
    }
}

void RecordLine::Write(const RecordValues& values, TextFile& file) {
    char* const line = file.Prepare(kRoom);
    PutAny(line, PutTime(line, values), values, file);
}

void RecordLine::WriteWithoutTime(const RecordValues& values, TextFile& file) {
    static_assert(kTimeColumn.width == CalendarText::kLength + 3);
    char* const line = file.Prepare(kRoom);
    std::memset(line, ' ', kTimeColumn.width);
    PutAny(line, line + kTimeColumn.width, values, file);
}

void RecordLine::PutAny(char* line, char* afterTime, const RecordValues& values, TextFile& file) {
    char* out = layout_ == Layout::kColumns || layout_ == Layout::kSpacedColumns
                    ? PutHead<true, false>(afterTime, values)
                    : PutHead<false, false>(afterTime, values);
    const std::size_t room = kLongestLine - static_cast<std::size_t>(out - line);
    const std::size_t length = std::min(values.message.size(), room);
    std::memcpy(out, values.message.data(), length);
    out += length;
    if (length < room) {
        *out++ = '\n';
    }
    file.Commit(out);
}
