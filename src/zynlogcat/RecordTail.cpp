#include "zynlogcat/RecordTail.h"

#include <utility>

RecordTail::Origin::Origin(const BlockOrigin& source) : host(source.host) {
    const std::size_t length = host.size();
    host.append(kReadSlack, '\0');
    block.host = std::string_view(host).substr(0, length);
    block.writer = source.writer;
    block.number = source.number;
    for (const BlockPiece& piece : source.pieces) {
        files.emplace_back(piece.file);
        pieces.push_back(piece);
    }
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        pieces[i].file = files[i];
    }
    block.pieces = pieces;
}

const std::shared_ptr<const RecordTail::Origin>& RecordTail::OriginOf(const BlockOrigin& block) {
    if (origin_ == nullptr || origin_->block.number != block.number) {
        origin_ = std::make_shared<const Origin>(block);
    }
    return origin_;
}

void RecordTail::Put(const TraceRecord& record) {
    if (count_ == 0) {
        return;
    }
    const Seen seen{record.data, record.offsetInBlock, record.sequence, record.time};
    if (data_ == Data::kOfCall) {
        Keep(seen, OriginOf(*record.block));
        return;
    }
    block_ = record.block;
    if (seen_.size() < count_) {
        seen_.push_back(seen);
    } else {
        seen_[nextSeen_] = seen;
        nextSeen_ = nextSeen_ + 1 == count_ ? 0 : nextSeen_ + 1;
    }
}

// What is left of a block whose reading failed lies in memory that is gone.
void RecordTail::BeginBlock() {
    seen_.clear();
    nextSeen_ = 0;
}

void RecordTail::EndBlock() {
    for (std::size_t i = 0; i < seen_.size(); ++i) {
        Keep(seen_[(nextSeen_ + i) % seen_.size()], OriginOf(*block_));
    }
    BeginBlock();
}

void RecordTail::Keep(const Seen& seen, const std::shared_ptr<const Origin>& origin) {
    // With what is readable behind it, whatever that is. Where there is no memory for it nothing
    // has changed.
    const std::string_view data(seen.data.data(), seen.data.size() + kReadSlack);
    if (kept_.size() < count_) {
        Kept added;
        added.data.assign(data);
        kept_.push_back(std::move(added));
        next_ = kept_.size() - 1;
    } else {
        kept_[next_].data.assign(data);
    }
    Kept& kept = kept_[next_];
    if (kept.origin != origin) {
        kept.origin = origin;
    }
    kept.offsetInBlock = seen.offsetInBlock;
    kept.sequence = seen.sequence;
    kept.time = seen.time;
    next_ = next_ + 1 == count_ ? 0 : next_ + 1;
}

void RecordTail::Finish() {
    const std::size_t oldest = kept_.size() < count_ ? 0 : next_;
    for (std::size_t i = 0; i < kept_.size(); ++i) {
        const Kept& kept = kept_[(oldest + i) % kept_.size()];
        TraceRecord record;
        view_.Open(kept.data.data(), static_cast<std::uint32_t>(kept.data.size() - kReadSlack),
                   record);
        record.block = &kept.origin->block;
        record.offsetInBlock = kept.offsetInBlock;
        record.sequence = kept.sequence;
        record.time = kept.time;
        sink_.Put(record);
    }
    kept_.clear();
    next_ = 0;
    seen_.clear();
    nextSeen_ = 0;
}
