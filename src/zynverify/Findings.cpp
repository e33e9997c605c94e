#include "zynverify/Findings.h"

#include <algorithm>

std::string_view KindName(FindingKind kind) noexcept {
    switch (kind) {
        case FindingKind::kUnreadable:
            return "unreadable";
        case FindingKind::kSmallFile:
            return "small-file";
        case FindingKind::kForeignFile:
            return "foreign-file";
        case FindingKind::kBlockHeader:
            return "block-header";
        case FindingKind::kBlockCut:
            return "block-cut";
        case FindingKind::kRecord:
            return "record";
        case FindingKind::kPacket:
            return "packet";
        case FindingKind::kGap:
            return "gap";
        case FindingKind::kDuplicate:
            return "duplicate";
        case FindingKind::kOrder:
            return "order";
        case FindingKind::kStray:
            return "stray";
        case FindingKind::kZeros:
            return "zeros";
        case FindingKind::kUnfinished:
            return "unfinished";
        case FindingKind::kNoFiles:
            return "no-files";
        case FindingKind::kCompressed:
            return "compressed";
        case FindingKind::kTwin:
            return "twin";
        case FindingKind::kRestart:
            break;
    }
    return "restart";
}

std::string_view ExportEffect(FindingKind kind) noexcept {
    switch (kind) {
        case FindingKind::kUnreadable:
        case FindingKind::kSmallFile:
            return "fails";
        case FindingKind::kForeignFile:
        case FindingKind::kNoFiles:
        case FindingKind::kCompressed:
        case FindingKind::kTwin:
            return "omits";
        case FindingKind::kBlockHeader:
        case FindingKind::kBlockCut:
        case FindingKind::kPacket:
        case FindingKind::kUnfinished:
        case FindingKind::kZeros:
            return "stops";
        case FindingKind::kRecord:
            return "drops";
        default:
            return "keeps";
    }
}

void Writers::Add(const Writer& writer) {
    if ((!known.empty() && known.back() == writer) ||
        std::find(known.begin(), known.end(), writer) != known.end()) {
        return;
    }
    if (known.size() < kMost) {
        known.push_back(writer);
    } else {
        more = true;
    }
}
