#include "zynlogcat/MergedRecords.h"

#include <span>

#include "TraceData/PacketLayout.h"

bool MergedRecords::Next(TraceRecord& record) {
    for (MergedRecord merged; merger_.Next(merged);) {
        if (!view_.Open(merged.record.data, merged.record.length, *merged.decoded, record)) {
            ReportPacket(merged, record.decoded->damageOffset);
            continue;
        }
        record.block = &OriginOf(merged);
        record.offsetInBlock = merged.record.offset;
        record.sequence = merged.record.sequenceNumber;
        record.time = merged.time;
        return true;
    }
    return false;
}

const BlockOrigin& MergedRecords::OriginOf(const MergedRecord& merged) {
    if (merged.writer >= current_.size()) {
        current_.resize(merger_.Writers());
    }
    Current& current = current_[merged.writer];
    // No block's data begins where the log does.
    if (current.position != merged.block->dataPosition) {
        current.position = merged.block->dataPosition;
        current.origins.Set(*merged.block, *logs_[merged.log], ++blocks_);
    }
    return current.origins.Get();
}

void MergedRecords::OnDamagedPlace(std::size_t log, const DamagedPlace& place) {
    report_.SetData(*logs_[log]);
    report_.OnBlockDamage(place);
}

void MergedRecords::OnRecordsLost(std::size_t log, const FoundBlock& block, Damage /*damage*/,
                                  std::uint32_t offset) {
    report_.SetData(*logs_[log]);
    report_.OnRecordDamage(block.dataPosition + offset, block.dataBytes - offset);
}

// offset: in the record's data, which lies behind its header.
void MergedRecords::ReportPacket(const MergedRecord& merged, std::uint32_t offset) {
    LogData& data = *logs_[merged.log];
    const std::uint64_t header = merged.block->dataPosition + merged.record.offset;
    const std::span<const char> first = data.Peek(header, 1);
    const std::uint32_t head =
        first.empty() ? 0 : PacketHeadBytes(static_cast<std::uint8_t>(first.front()));
    report_.SetData(data);
    report_.OnPacketDamage(header + head + kRecordHeaderPayload + offset);
}
