// The packets of one record: what the road for usual records and the general road tell, and the
// lines made of it.
#include <cstdint>
#include <string>
#include <string_view>
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

// What a usual record tells, in the order of its packets.
std::vector<ModelValue> ValuesOf(const RecordValues& usual) {
    using Kind = ModelValue::Kind;
    std::vector<ModelValue> values{{Kind::kTime, 0, usual.seconds, usual.milliseconds, {}},
                                   {Kind::kThread, 0, usual.thread, 0, {}},
                                   {Kind::kProcess, 0, usual.process, 0, {}}};
    const auto add = [&values](std::uint16_t id, std::string_view text) {
        if (text.data() != RecordValues::kNoText.data()) {
            values.push_back({Kind::kText, id, 0, 0, std::string(text)});
        }
    };
    add(kModulePacketId, usual.names[RecordValues::kModule]);
    add(kClientPacketId, usual.names[RecordValues::kClient]);
    add(kLabelPacketId, usual.names[RecordValues::kLabel]);
    add(kMessagePacketId, usual.message);
    return values;
}

void CheckValues(const LogCase& record, const ModelRecord& expected) {
    const PlacedBytes bytes(record.log, 0);
    Listener general;
    const std::string failure = FailureOf([&] { ReaderOf(bytes, general).ProcessAll(); });
    RequireEqual(failure, expected.failure, "the general road fails differently");
    Require(general.Values() == expected.values, "the general road reads other values");
    RecordValues usual;
    if (ReadUsualRecord(bytes.Data(), static_cast<std::uint32_t>(bytes.Size()), usual)) {
        RequireEqual(std::string(), expected.failure, "the usual road misses a failure");
        Require(ValuesOf(usual) == expected.values, "the usual road reads other values");
    }
}

// Renders the record on each road that it can take, and again with its time a step later, which
// finds the calendar text of the first time still at hand.
void CheckLines(const LogCase& record, const ModelRecord& expected) {
    static const MemoryFile memory;
    const PlacedBytes bytes(record.log, LegacyZynRecord::kReadSlack);
    const std::uint32_t later =
        kFuzzNow.seconds + (record.words[0] | std::uint32_t{record.words[1]} << 16U);
    std::string expectedLines;
    {
        TextFile file(memory.Path(), {});
        ProgressDisplay progress(nullptr);
        ZynDataTextExporter::BlockReaderClient client(file, record.separator, progress, FuzzNowMs);
        const auto expectLine = [&](bool isLater) {
            std::vector<ModelValue> values = expected.values;
            if (isLater) {
                values.push_back({ModelValue::Kind::kTime, 0, later, record.words[2], {}});
            }
            expectedLines += ModelLine(values, record.separator, kFuzzNow);
        };
        for (const bool isLater : {false, true}) {
            client.OnRecordBegin();
            ReaderOf(bytes, client).ProcessAll();
            if (isLater) {
                client.OnTime(later, record.words[2]);
            }
            client.OnRecordEnd();
            expectLine(isLater);
            RecordValues usual;
            if (ReadUsualRecord(bytes.Data(), static_cast<std::uint32_t>(bytes.Size()), usual)) {
                if (isLater) {
                    usual.seconds = later;
                    usual.milliseconds = record.words[2];
                }
                client.OnUsualRecord(usual);
                expectLine(isLater);
            }
        }
        file.Close();
    }
    RequireEqual(memory.Content(), expectedLines, "another line");
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
