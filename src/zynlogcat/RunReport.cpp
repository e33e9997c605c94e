#include "zynlogcat/RunReport.h"

#include <ostream>

#include "Support/PrintableText.h"

namespace {

std::string Bytes(std::uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

void RunReport::Say(std::string_view text) {
    // Written as a whole line: other programs may write to the same terminal.
    std::string line = "zynlog-cat: ";
    out_ << line.append(MaskedControls(std::string(text))).append("\n") << std::flush;
}

void RunReport::OnFailure(std::string_view text) {
    Raise(kUnreadable);
    Say(text);
}

void RunReport::OnEmptyLog(const std::string& path) {
    // For a single file the reason has been reported.
    if (isDirectory_ || !saidOfLog_) {
        Say(path + ": no log file there");
    }
    Raise(kUnreadable);
}

void RunReport::OnIssue(const InputIssue& issue) {
    saidOfLog_ = true;
    Say(issue.path + ": " + issue.text);
    switch (issue.kind) {
        case InputIssueKind::kUnreadable:
            Raise(kUnreadable);
            break;
        case InputIssueKind::kForeign:
        case InputIssueKind::kTooSmall:
            Raise(isDirectory_ ? kDamaged : kUnreadable);
            break;
        case InputIssueKind::kTwin:
            break;
        case InputIssueKind::kCompressedCut:
        case InputIssueKind::kCompressedDamaged:
            Raise(kDamaged);
            break;
    }
}

void RunReport::SayDamage(std::uint64_t position, std::string_view kind, const std::string& text) {
    Raise(kDamaged);
    if (quiet_) {
        return;
    }
    const LogPlace place = data_->PlaceOf(position);
    std::string line = *place.path;
    line.append(", offset ").append(std::to_string(place.offset)).append(": ");
    Say(line.append(kind).append(": ").append(text));
}

void RunReport::OnBlockDamage(const DamagedPlace& damage) {
    if (damage.damage == BlockDamage::kBlockCut) {
        SayDamage(damage.position, "block-cut",
                  "the log ends within the block; " + Bytes(damage.bytes) + " not shown");
    } else if (damage.bytes == 0) {
        SayDamage(damage.position, "block-header",
                  "the length of the block is wrong; it is shown as far as the next one");
    } else {
        SayDamage(damage.position, "block-header",
                  "no block where one should be; " + Bytes(damage.bytes) + " passed over");
    }
}

void RunReport::OnRecordDamage(std::uint64_t position, std::uint64_t bytes) {
    SayDamage(
        position, "record",
        "no record where one should be; the rest of the block, " + Bytes(bytes) + ", not shown");
}

void RunReport::OnPacketDamage(std::uint64_t position) {
    SayDamage(position, "packet", "a packet runs past its record, which is not shown");
}
