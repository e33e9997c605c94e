#include "zynverify/LogObserver.h"

#include <algorithm>
#include <utility>

#include "zynverify/Joined.h"

namespace {

// What damage means to a piece of the log and the whole that it lies in.
std::string Described(Damage damage, const std::string& piece, const std::string& whole) {
    if (damage == Damage::kCutOff) {
        return Joined("a ", piece, " runs past the end of its ", whole);
    }
    return Joined("there is no ", piece, " header where one should be");
}

}  // namespace

void LogObserver::ReportFile(FindingKind kind, const std::string& path, std::uint64_t bytes,
                             std::string text) {
    Finding finding;
    finding.kind = kind;
    finding.file = path;
    finding.bytes = bytes;
    finding.text = std::move(text);
    // An export of the log does not even begin.
    if (kind == FindingKind::kSmallFile || kind == FindingKind::kUnreadable ||
        kind == FindingKind::kUnfinished) {
        exported_ = 0;
    }
    report_.damaged |= IsDamage(kind);
    report_.unreadable |= kind == FindingKind::kUnreadable || kind == FindingKind::kNoFiles;
    ++report_.findings;
    listener_.OnFinding(finding);
}

void LogObserver::SetFiles(const std::vector<LogFileExtent>& files) {
    for (const LogFileExtent& file : files) {
        begins_.push_back(report_.totalBytes);
        headers_.push_back(file.headerBytes);
        report_.files.emplace_back();
        report_.files.back().path = file.path;
        report_.files.back().bytes = file.dataBytes;
        report_.totalBytes += file.dataBytes;
    }
}

std::size_t LogObserver::FileAt(std::uint64_t position) const noexcept {
    // Of files without data that begin where another one does, the last begins the search.
    const auto behind = std::upper_bound(begins_.begin(), begins_.end(), position);
    return static_cast<std::size_t>(behind - begins_.begin()) - 1;
}

void LogObserver::BeginBlock(std::uint64_t position) {
    block_ = BlockReport();
    ++place_.number;
    place_.position = position;
    file_ = FileAt(position);
    block_.number = place_.number;
    block_.file = report_.files[file_].path;
    block_.offset = OffsetIn(file_, position);
    late_ = again_ = Tally();
}

void LogObserver::OnBlockHeader(const BlockHeader& header) {
    const std::string_view host(header.hostName.data(), header.hostName.size());
    block_.writer = {std::string(host.substr(0, host.find('\0'))), header.processId};
    block_.dataBytes = header.dataSize;
}

void LogObserver::EndBlock(std::uint64_t next) {
    ReportTallies();
    FileReport& file = report_.files[file_];
    ++file.blocks;
    file.records += block_.records;
    file.time.Add(block_.time);
    file.writers.Add(block_.writer);
    ++report_.blocks;
    report_.records += block_.records;
    report_.time.Add(block_.time);
    report_.writers.Add(block_.writer);
    report_.verifiedBytes = next;
    listener_.OnBlock(block_);
}

void LogObserver::ReportTallies() {
    report_.late += late_.count;
    report_.duplicates += again_.count;
    if (late_.count != 0) {
        Finding finding;
        finding.kind = FindingKind::kOrder;
        finding.records = late_.count;
        finding.text = Joined("more than 1000 places out of order: number ", late_.first,
                              late_.count > 1 ? " and others" : "");
        Report(std::move(finding), place_.position);
    }
    if (again_.count != 0) {
        Finding finding;
        finding.kind = FindingKind::kDuplicate;
        finding.records = again_.count;
        finding.text = Joined("number ", again_.first,
                              again_.count > 1 ? " and others have" : " has", " been there before");
        Report(std::move(finding), place_.position);
    }
}

void LogObserver::Report(Finding finding, std::uint64_t position) {
    ReportAt(std::move(finding), position, place_.number);
}

void LogObserver::ReportAt(Finding finding, std::uint64_t position, std::uint64_t block) {
    if (block != 0) {
        const std::size_t file = FileAt(position);
        finding.file = report_.files[file].path;
        finding.offset = OffsetIn(file, position);
        finding.block = block;
        ++report_.files[file].findings;
    }
    const bool stops =
        ExportEffect(finding.kind) == "stops" || finding.kind == FindingKind::kUnreadable;
    if (stops && !exported_) {
        exported_ = report_.records + block_.records;
    }
    report_.damaged |= IsDamage(finding.kind);
    report_.unreadable |= finding.kind == FindingKind::kUnreadable;
    ++report_.findings;
    listener_.OnFinding(finding);
}

void LogObserver::ReportRecord(const PlacedRecord& record, const DecodedRecord& decoded) {
    Finding finding;
    finding.kind = FindingKind::kPacket;
    finding.bytes = record.length - decoded.damageOffset;
    finding.records = 1;
    finding.text = Joined("record ", record.sequenceNumber, ": ",
                          Described(decoded.damage, "packet", "record"));
    Report(std::move(finding), dataBegin_ + record.DataOffset() + decoded.damageOffset);
}

void LogObserver::OnBlockDamage(Damage damage, std::uint32_t offset) {
    Finding finding;
    finding.kind = FindingKind::kRecord;
    finding.bytes = block_.dataBytes - offset;
    finding.text = Joined(Described(damage, "record", "block"), "; the rest of the block is lost");
    Report(std::move(finding), dataBegin_ + offset);
}

void LogObserver::OnGap(std::uint32_t first, std::uint32_t count, const BlockPlace& block) {
    report_.missing += count;
    Finding finding;
    finding.kind = FindingKind::kGap;
    finding.records = count;
    finding.text = count == 1 ? Joined("missing: ", first)
                              : Joined("missing: ", first, "-", std::uint32_t{first + count - 1});
    ReportAt(std::move(finding), block.position, block.number);
}

void LogObserver::OnRestart(std::uint32_t last, std::uint32_t first, const BlockPlace& block) {
    Finding finding;
    finding.kind = FindingKind::kRestart;
    finding.text = Joined("the numbering begins anew: ", first, " after ", last);
    ReportAt(std::move(finding), block.position, block.number);
}

void LogObserver::OnStray(std::uint32_t number, const BlockPlace& block) {
    Finding finding;
    finding.kind = FindingKind::kStray;
    finding.records = 1;
    finding.text = Joined("number ", number, " is far from all around it");
    ReportAt(std::move(finding), block.position, block.number);
}

LogReport LogObserver::Finish() {
    sequence_.Finish();
    report_.exported = exported_.value_or(report_.records);
    listener_.OnLogEnd(report_);
    return std::move(report_);
}
