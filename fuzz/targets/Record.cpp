// The packets of one record: what the road for usual packets and the general road tell, and the
// line made of it.
#include <cstdint>
#include <string>
#include <vector>

#include "MemoryStream/MemoryStream.h"
#include "TraceData/ZynDataTextExporter.h"
#include "targets/LogCase.h"

namespace {

using MemoryReader = BufferedInputStream<ReadableMemoryBuffer>;

class Listener {
  public:
    using Kind = ModelValue::Kind;
    void OnRead(std::string_view text, std::uint16_t id) {
        values_.push_back({Kind::kText, id, 0, 0, std::string(text)});
    }
    void OnThread(std::uint32_t number) { values_.push_back({Kind::kThread, 0, number, 0, {}}); }
    void OnProcess(std::uint32_t number) { values_.push_back({Kind::kProcess, 0, number, 0, {}}); }
    void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) {
        values_.push_back({Kind::kTime, 0, seconds, milliseconds, {}});
    }
    void OnControl(std::uint32_t code, std::uint32_t process) {
        values_.push_back({Kind::kControl, 0, code, process, {}});
    }
    [[nodiscard]] const std::vector<ModelValue>& Values() const noexcept { return values_; }

  private:
    std::vector<ModelValue> values_;
};

template <typename Client>
TracePacketReader<MemoryReader, Client> ReaderOf(const PlacedBytes& bytes, Client& client) {
    const ReadableMemoryBuffer buffer(bytes.Data(), static_cast<std::uint32_t>(bytes.Size()));
    return TracePacketReader<MemoryReader, Client>(MemoryReader(buffer), client);
}

void CheckValues(const LogCase& record, const ModelRecord& expected) {
    const PlacedBytes bytes(record.log, 0);
    Listener usual;
    const std::string usualFailure = FailureOf([&] { ReaderOf(bytes, usual).ProcessAll(); });
    Listener general;
    const std::string generalFailure = FailureOf([&] {
        auto reader = ReaderOf(bytes, general);
        while (!reader.AtEnd()) {
            reader.Process();
        }
    });
    RequireEqual(usualFailure, expected.failure, "the usual road fails differently");
    RequireEqual(generalFailure, expected.failure, "the general road fails differently");
    Require(usual.Values() == expected.values, "the usual road reads other values");
    Require(general.Values() == expected.values, "the general road reads other values");
}

// Renders the record, and again with its time a step later, which finds the calendar text of the
// first time still at hand.
void CheckLines(const LogCase& record, const ModelRecord& expected) {
    static const MemoryFile memory;
    const PlacedBytes bytes(record.log, LegacyZynRecord::kReadSlack);
    const std::uint32_t step = record.words[0] | std::uint32_t{record.words[1]} << 16U;
    std::vector<ModelValue> values = expected.values;
    {
        TextFile file(memory.Path(), {});
        ProgressDisplay progress(nullptr);
        ZynDataTextExporter::BlockReaderClient client(file, record.separator, progress, FuzzNowMs);
        for (const bool later : {false, true}) {
            client.OnRecordBegin();
            ReaderOf(bytes, client).ProcessAll();
            if (later) {
                client.OnTime(kFuzzNow.seconds + step, record.words[2]);
            }
            client.OnRecordEnd();
        }
        file.Close();
    }
    std::string lines = ModelLine(values, record.separator, kFuzzNow);
    values.push_back({ModelValue::Kind::kTime, 0, kFuzzNow.seconds + step, record.words[2], {}});
    lines += ModelLine(values, record.separator, kFuzzNow);
    RequireEqual(memory.Content(), lines, "another line");
}

}  // namespace

int ZynFuzzRecord(FuzzInput input) {
    const LogCase record(input);
    const ModelRecord expected = ModelDecode(record.log);
    CheckValues(record, expected);
    if (expected.failure.empty()) {
        CheckLines(record, expected);
    }
    return 0;
}
