#include "zynverify/TableReport.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <ostream>
#include <string>
#include <string_view>

#include "Support/PrintableText.h"
#include "TraceData/CalendarText.h"
#include "zynverify/Joined.h"

namespace {

std::string BaseName(const std::string& path) {
    return MaskedControls(path.substr(path.rfind('/') + 1));
}

std::string TimeText(std::uint64_t milliseconds) {
    CalendarText calendar;
    const std::string_view seconds(calendar.For(static_cast<std::uint32_t>(milliseconds / 1000)),
                                   CalendarText::kLength);
    return Joined(seconds, std::setw(3), std::setfill('0'), milliseconds % 1000);
}

std::string RangeText(const TimeRange& range) {
    return range.Empty() ? "no times" : Joined(TimeText(range.first), " to ", TimeText(range.last));
}

std::string WriterText(const Writer& writer) {
    return Joined(writer.host.empty() ? "?" : MaskedControls(writer.host), "/", writer.process);
}

std::string WritersText(const Writers& writers) {
    constexpr std::size_t kShown = 8;
    std::string text;
    for (std::size_t i = 0; i < std::min(kShown, writers.known.size()); ++i) {
        text.append(i == 0 ? "" : " ").append(WriterText(writers.known[i]));
    }
    return text.append(writers.more || writers.known.size() > kShown ? " ..." : "");
}

std::string Counted(std::uint64_t count, std::string_view thing) {
    return Joined(count, " ", thing, count == 1 ? "" : "s");
}

// One line of the upper table: what lies where.
struct Row {
    std::string file;
    std::string offset;
    std::string block;
    std::string kind;
    std::string bytes;
    std::string records;
    std::string text;
};

void Put(std::ostream& out, const Row& row) {
    out << std::left << std::setw(20) << row.file << ' ' << std::right << std::setw(12)
        << row.offset << ' ' << std::setw(8) << row.block << "  " << std::left << std::setw(12)
        << row.kind << ' ' << std::right << std::setw(10) << row.bytes << ' ' << std::setw(8)
        << row.records << "  " << row.text << '\n';
}

}  // namespace

void TableReport::OnLogBegin(const LogReport& log) {
    out_ << "Log " << MaskedControls(log.name) << '\n';
    headed_ = false;
}

void TableReport::PutHead() {
    progress_.Clear();
    if (!headed_) {
        headed_ = true;
        Put(out_, {"FILE", "OFFSET", "BLOCK", "KIND", "BYTES", "RECORDS", "WHAT"});
    }
}

void TableReport::OnFinding(const Finding& finding) {
    PutHead();
    const bool inBlock = finding.block != 0;
    const std::string records = finding.records ? std::to_string(*finding.records)
                                : inBlock       ? "?"
                                                : "-";
    Put(out_, {finding.file.empty() ? "-" : BaseName(finding.file),
               inBlock ? std::to_string(finding.offset) : "-",
               inBlock ? std::to_string(finding.block) : "-", std::string(KindName(finding.kind)),
               std::to_string(finding.bytes), records, MaskedControls(finding.text)});
}

void TableReport::OnBlock(const BlockReport& block) {
    if (!blocks_) {
        return;
    }
    PutHead();
    std::string text = WriterText(block.writer);
    if (block.records != 0) {
        text = Joined(text, ", numbers ", block.lowest, "-", block.highest, ", ",
                      RangeText(block.time));
    }
    Put(out_, {BaseName(block.file), std::to_string(block.offset), std::to_string(block.number),
               "block", std::to_string(block.dataBytes), std::to_string(block.records), text});
}

void TableReport::OnLogEnd(const LogReport& log) {
    progress_.Clear();
    if (headed_) {
        out_ << '\n';
    }
    PutFiles(log);
    PutSums(log);
    out_ << std::flush;
}

void TableReport::PutFiles(const LogReport& log) {
    const auto put = [this](const std::string& file, const std::string& bytes,
                            const std::string& blocks, const std::string& records,
                            const std::string& findings, const std::string& rest) {
        out_ << std::left << std::setw(20) << file << ' ' << std::right << std::setw(12) << bytes
             << ' ' << std::setw(8) << blocks << ' ' << std::setw(10) << records << ' '
             << std::setw(8) << findings << "  " << rest << '\n';
    };
    put("FILE", "BYTES", "BLOCKS", "RECORDS", "FINDINGS", "TIMES, WRITERS");
    for (const FileReport& file : log.files) {
        std::string rest = RangeText(file.time);
        if (!file.writers.known.empty()) {
            rest.append(", ").append(WritersText(file.writers));
        }
        put(BaseName(file.path), std::to_string(file.bytes), std::to_string(file.blocks),
            std::to_string(file.records), std::to_string(file.findings), rest);
    }
}

void TableReport::PutSums(const LogReport& log) {
    out_ << Counted(log.files.size(), "file") << ", " << Counted(log.blocks, "block") << ", "
         << Counted(log.records, "record") << "; an export writes " << log.exported << " of them\n";
    if (log.verifiedBytes != log.totalBytes) {
        out_ << log.verifiedBytes << " of " << log.totalBytes << " bytes verified\n";
    }
    if (log.missing + log.duplicates + log.late != 0) {
        out_ << "sequence numbers: " << log.missing << " missing, " << log.duplicates << " twice, "
             << log.late << " more than 1000 places out of order\n";
    }
    const std::string_view verdict = log.unreadable ? "could not be read"
                                     : log.damaged  ? "damaged"
                                                    : "clean";
    out_ << verdict << '\n';
}
