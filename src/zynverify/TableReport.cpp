#include "zynverify/TableReport.h"

#include <algorithm>
#include <cstddef>
#include <iomanip>
#include <ostream>
#include <string_view>
#include <tuple>
#include <utility>

#include "LogReading/LogFiles.h"
#include "Support/PrintableText.h"
#include "TraceData/text/CalendarText.h"
#include "zynverify/Joined.h"
#include "zynverify/TextTable.h"

namespace {

// More are not held: a log with more of them is reported in parts, each of them sorted.
constexpr std::size_t kMostRows = 10000;

std::string BaseName(const std::string& path) {
    return MaskedControls(path.substr(path.rfind('/') + 1));
}

std::string TimeText(std::uint64_t milliseconds) {
    CalendarText calendar;
    const std::string_view seconds(calendar.For(static_cast<std::uint32_t>(milliseconds / 1000)),
                                   CalendarText::kLength);
    return Joined(seconds, std::setw(3), std::setfill('0'), milliseconds % 1000);
}

// From and to, the day said once where it is the same.
std::vector<std::string> RangePieces(const TimeRange& range) {
    if (range.Empty()) {
        return {"no times"};
    }
    constexpr std::size_t kDay = 11;
    const std::string first = TimeText(range.first);
    const std::string last = TimeText(range.last);
    const bool sameDay = first.compare(0, kDay, last, 0, kDay) == 0;
    return {first + " to", sameDay ? last.substr(kDay) : last};
}

std::string WriterText(const Writer& writer) {
    return Joined(writer.host.empty() ? "?" : MaskedControls(writer.host), "/", writer.process);
}

// Behind something else.
void AddWriters(std::vector<std::string>& pieces, const Writers& writers) {
    constexpr std::size_t kShown = 8;
    const std::size_t shown = std::min(kShown, writers.known.size());
    if (shown != 0) {
        pieces.back() += ',';
    }
    for (std::size_t i = 0; i < shown; ++i) {
        pieces.push_back(WriterText(writers.known[i]));
    }
    if (writers.more || writers.known.size() > kShown) {
        pieces.emplace_back("...");
    }
}

std::string Counted(std::uint64_t count, std::string_view thing) {
    return Joined(count, " ", thing, count == 1 ? "" : "s");
}

// Bytes in which an export finds no record.
bool LosesBytes(FindingKind kind) noexcept {
    const std::string_view effect = ExportEffect(kind);
    return effect != "keeps" && kind != FindingKind::kZeros && kind != FindingKind::kUnfinished;
}

}  // namespace

void TableReport::OnLogBegin(const LogReport& log) {
    out_ << "Log " << MaskedControls(log.name) << '\n';
    lostBytes_ = 0;
    headed_ = false;
}

void TableReport::Add(Row row) {
    rows_.push_back(std::move(row));
    if (rows_.size() == kMostRows) {
        PutRows();
    }
}

void TableReport::PutRows() {
    if (rows_.empty()) {
        return;
    }
    progress_.Clear();
    // What belongs to no place comes last; what is found of a block, before the block itself.
    std::stable_sort(rows_.begin(), rows_.end(), [](const Row& one, const Row& other) {
        return std::tuple(one.file.empty(), std::string_view(one.file), one.offset) <
               std::tuple(other.file.empty(), std::string_view(other.file), other.offset);
    });
    using Side = TextTable::Side;
    TextTable table({{"FILE", Side::kLeft},
                     {"OFFSET"},
                     {"BLOCK"},
                     {"KIND", Side::kLeft},
                     {"BYTES"},
                     {"RECORDS"}},
                    "WHAT");
    for (Row& row : rows_) {
        const bool placed = row.block != 0;
        table.Add(
            {row.file.empty() ? "-" : BaseName(row.file), placed ? std::to_string(row.offset) : "-",
             placed ? std::to_string(row.block) : "-", std::string(row.kind),
             std::to_string(row.bytes), std::move(row.records)},
            std::move(row.what));
    }
    table.Print(out_, width_);
    rows_.clear();
    headed_ = true;
}

void TableReport::OnFinding(const Finding& finding) {
    const bool placed = finding.block != 0;
    if (LosesBytes(finding.kind)) {
        lostBytes_ += finding.bytes;
    }
    Add({.file = finding.file,
         .offset = placed ? finding.offset : 0,
         .block = finding.block,
         .kind = KindName(finding.kind),
         .bytes = finding.bytes,
         .records = finding.records ? std::to_string(*finding.records)
                    : placed        ? "?"
                                    : "-",
         .what = Words(MaskedControls(finding.text))});
}

void TableReport::OnBlock(const BlockReport& block) {
    if (!blocks_) {
        return;
    }
    std::vector<std::string> what{WriterText(block.writer)};
    if (block.records != 0) {
        what.back() += ',';
        what.push_back(Joined("numbers ", block.lowest, "-", block.highest, ","));
        const std::vector<std::string> times = RangePieces(block.time);
        what.insert(what.end(), times.begin(), times.end());
    }
    Add({.file = block.file,
         .offset = block.offset,
         .block = block.number,
         .kind = "block",
         .bytes = block.dataBytes,
         .records = std::to_string(block.records),
         .what = std::move(what)});
}

void TableReport::OnLogEnd(const LogReport& log) {
    PutRows();
    progress_.Clear();
    if (headed_) {
        out_ << '\n';
    }
    PutFiles(log);
    PutSums(log);
    out_ << std::flush;
}

void TableReport::PutFiles(const LogReport& log) {
    if (log.files.empty()) {
        return;
    }
    TextTable table(
        {{"FILE", TextTable::Side::kLeft}, {"BYTES"}, {"BLOCKS"}, {"RECORDS"}, {"FINDINGS"}},
        "TIMES, WRITERS");
    for (const FileReport& file : log.files) {
        std::vector<std::string> rest = RangePieces(file.time);
        AddWriters(rest, file.writers);
        table.Add({BaseName(file.path), std::to_string(file.bytes), std::to_string(file.blocks),
                   std::to_string(file.records), std::to_string(file.findings)},
                  std::move(rest));
    }
    table.Print(out_, width_);
}

// What is lost stands first.
void TableReport::PutSums(const LogReport& log) {
    const auto put = [this](const std::string& text) { PutWrapped(out_, text, width_); };
    const std::uint64_t lostRecords = log.records - log.exported;
    if (lostRecords + lostBytes_ != 0) {
        const std::string records =
            Joined(lostRecords, " of ", Counted(log.records, "record"), " that can be read");
        const std::string bytes = "what was in " + Counted(lostBytes_, "damaged byte");
        put("an export loses " + (lostBytes_ == 0    ? records
                                  : lostRecords == 0 ? bytes
                                                     : records + ", and " + bytes));
        put("zynlog-verify --salvage NEW_DIRECTORY " + MaskedControls(log.name) +
            " copies what is good");
    }
    if (log.missing + log.duplicates + log.late != 0) {
        put(Joined("sequence numbers: ", log.missing, " missing, ", log.duplicates, " twice, ",
                   log.late, " more than ", kReorderLimit, " places out of order"));
    }
    if (log.verifiedBytes != log.totalBytes) {
        put(Joined(log.verifiedBytes, " of ", log.totalBytes, " bytes verified"));
    }
    const bool all = lostRecords == 0 && log.records != 0;
    put(Joined(Counted(log.files.size(), "file"), ", ", Counted(log.blocks, "block"), ", ",
               Counted(log.records, "record"), lostBytes_ != 0 ? " that can be read" : "",
               "; an export writes ", all ? "all" : std::to_string(log.exported), " of them"));
    put(log.unreadable ? "could not be read" : log.damaged ? "damaged" : "clean");
}
