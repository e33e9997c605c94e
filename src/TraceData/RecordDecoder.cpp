#include "TraceData/RecordDecoder.h"

#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/TracePacket.h"

namespace {

// In a log whose records hardly ever repeat a shape, shapes are tried only for every so many
// records.
constexpr std::uint32_t kPatience = 16;

}  // namespace

void DecodePackets(const char* data, std::uint32_t length, DecodedRecord& record) noexcept {
    record = DecodedRecord();
    record.data = data;
    record.length = length;
    RecordFiller filler(record);
    TracePacketReader packets(data, length);
    TracePacket packet;
    while (packets.Next(packet)) {
        DispatchPacket(packet, filler);
    }
    filler.OnEnd(packets.FoundDamage(), packets.Offset());
}

RecordDecoder::RecordDecoder() noexcept {
    for (Known& known : known_) {
        known.successor = &known;
    }
}

const DecodedRecord& RecordDecoder::DecodeUnexpected(const char* data,
                                                     std::uint32_t length) noexcept {
    const bool trying = misses_ < kPatience || misses_ % kPatience == 0;
    ++misses_;
    if (trying) {
        if (Known* const known = FindShape(data, length)) {
            misses_ = 0;
            last_->successor = known;
            last_ = known;
            return known->shape.Record();
        }
    }
    DecodePackets(data, length, record_);
    if (trying && record_.damage == Damage::kNone) {
        LearnShape(data, length);
    }
    return record_;
}

RecordDecoder::Known* RecordDecoder::FindShape(const char* data, std::uint32_t length) noexcept {
    for (Known& known : known_) {
        if (&known != last_->successor && known.shape.Match(data, length)) {
            return &known;
        }
    }
    return nullptr;
}

// In the place of the shape that was learned first of all.
void RecordDecoder::LearnShape(const char* data, std::uint32_t length) noexcept {
    Known& place = known_[oldest_];
    if (!place.shape.Learn(data, length)) {
        return;
    }
    oldest_ = (oldest_ + 1) % kShapes;
    place.successor = &place;
    last_->successor = &place;
    last_ = &place;
}
