// From the bytes of a record to its values: numbers, whole names, message.
#ifndef ZYN_TRACEDATA_RECORDDECODER_H
#define ZYN_TRACEDATA_RECORDDECODER_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "TraceData/DecodedRecord.h"
#include "TraceData/RecordShape.h"

// Reads a record packet by packet, whatever their order, their number and the damage: the general
// path, which needs no memory of other records.
void DecodePackets(const char* data, std::uint32_t length, DecodedRecord& record) noexcept;

// Reads records, one after the other, and learns their shapes on the way: one of a known shape
// takes the fast path, any other one the general path. Writers who take turns have a shape each.
// Memory: 16 KiB. One thread.
class RecordDecoder {
  public:
    RecordDecoder() noexcept;
    RecordDecoder(const RecordDecoder&) = delete;
    RecordDecoder& operator=(const RecordDecoder&) = delete;

    // kReadSlack bytes behind the record can be read, whatever their value. The result is valid
    // until the next call, its texts as long as the record's bytes are.
    const DecodedRecord& Decode(const char* data, std::uint32_t length) noexcept {
        Known* const expected = last_->successor;
        if (expected->shape.Match(data, length)) [[likely]] {
            last_ = expected;
            return expected->shape.Record();
        }
        return DecodeUnexpected(data, length);
    }

  private:
    static constexpr std::size_t kShapes = 8;

    // A shape, and which one came behind it the last time.
    struct Known {
        RecordShape shape;
        Known* successor = nullptr;
    };

    [[gnu::noinline]] const DecodedRecord& DecodeUnexpected(const char* data,
                                                            std::uint32_t length) noexcept;
    Known* FindShape(const char* data, std::uint32_t length) noexcept;
    void LearnShape(const char* data, std::uint32_t length) noexcept;

    std::array<Known, kShapes> known_;
    Known* last_ = known_.data();
    std::size_t oldest_ = 0;
    // How many records in a row had no known shape.
    std::uint32_t misses_ = 0;
    DecodedRecord record_;
};

#endif
