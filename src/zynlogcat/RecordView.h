// From the bytes of a record to what conditions and forms see of it.
#ifndef ZYN_ZYNLOGCAT_RECORDVIEW_H
#define ZYN_ZYNLOGCAT_RECORDVIEW_H

#include <cstdint>
#include <string>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/RecordDecoder.h"
#include "zynlogcat/TraceRecord.h"

// One thread.
class RecordView {
  public:
    // Fills `decoded`, `data` and `message` of a record whose packets lie there, with kReadSlack
    // readable bytes behind them; valid until the next call. False for damaged packets: `decoded`
    // says which.
    bool Open(const char* data, std::uint32_t length, TraceRecord& record) {
        return Open(data, length, decoder_.Decode(data, length), record);
    }
    // The same of a record that has been decoded.
    bool Open(const char* data, std::uint32_t length, const DecodedRecord& decoded,
              TraceRecord& record) {
        record.data = {data, length};
        record.decoded = &decoded;
        record.message = decoded.values.message;
        if (decoded.isComposed) [[unlikely]] {
            JoinMessage(decoded, record);
        }
        return decoded.damage == Damage::kNone;
    }

  private:
    void JoinMessage(const DecodedRecord& decoded, TraceRecord& record);

    RecordDecoder decoder_;
    // A message made of several packets, with room to read behind it.
    std::string message_;
};

#endif
