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
        record.data = {data, length};
        plain_.values = RecordValues();
        if (ReadUsualRecord(data, length, plain_.values)) [[likely]] {
            TakePlain(data, length);
            record.decoded = &plain_;
            record.message = plain_.values.message;
            return true;
        }
        return OpenAny(data, length, record);
    }

  private:
    void TakePlain(const char* data, std::uint32_t length) noexcept {
        const auto part = [](std::string_view text, DecodedRecord::Part which) {
            return text.data() == RecordValues::kNoText.data() ? 0U : unsigned{which};
        };
        const auto& [module, client, label] = plain_.values.names;
        plain_.parts = static_cast<std::uint8_t>(
            unsigned{DecodedRecord::kTime} | DecodedRecord::kThread | DecodedRecord::kProcess |
            part(module, DecodedRecord::kModule) | part(client, DecodedRecord::kClient) |
            part(label, DecodedRecord::kLabel) |
            part(plain_.values.message, DecodedRecord::kMessage));
        plain_.data = data;
        plain_.length = length;
    }
    bool OpenAny(const char* data, std::uint32_t length, TraceRecord& record);

    // A record as services write nearly all of them.
    DecodedRecord plain_;
    RecordDecoder decoder_;
    // A message made of several packets, with room to read behind it.
    std::string message_;
};

#endif
