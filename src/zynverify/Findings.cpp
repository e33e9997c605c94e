#include "zynverify/Findings.h"

#include <algorithm>

namespace {

struct FindingFacts {
    std::string_view name;
    std::string_view exportEffect;
    bool damage;
};

FindingFacts FactsOf(FindingKind kind) noexcept {
    switch (kind) {
        case FindingKind::kUnreadable:
            return {"unreadable", "fails", false};
        case FindingKind::kSmallFile:
            return {"small-file", "fails", true};
        case FindingKind::kForeignFile:
            return {"foreign-file", "omits", true};
        case FindingKind::kBlockHeader:
            return {"block-header", "stops", true};
        case FindingKind::kBlockCut:
            return {"block-cut", "stops", true};
        case FindingKind::kRecord:
            return {"record", "drops", true};
        case FindingKind::kPacket:
            return {"packet", "stops", true};
        case FindingKind::kGap:
            return {"gap", "keeps", true};
        case FindingKind::kDuplicate:
            return {"duplicate", "keeps", true};
        case FindingKind::kOrder:
            return {"order", "keeps", true};
        case FindingKind::kStray:
            return {"stray", "keeps", true};
        case FindingKind::kRestart:
            return {"restart", "keeps", false};
        case FindingKind::kZeros:
            return {"zeros", "stops", true};
        case FindingKind::kUnfinished:
            return {"unfinished", "stops", false};
        case FindingKind::kNoFiles:
            return {"no-files", "omits", false};
        case FindingKind::kCompressed:
            return {"compressed", "omits", true};
        case FindingKind::kTwin:
            return {"twin", "omits", false};
    }
    __builtin_unreachable();
}

}  // namespace

std::string_view KindName(FindingKind kind) noexcept { return FactsOf(kind).name; }
std::string_view ExportEffect(FindingKind kind) noexcept { return FactsOf(kind).exportEffect; }
bool IsDamage(FindingKind kind) noexcept { return FactsOf(kind).damage; }

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
