// The packets of one record: what the fast path and the general path read, and the lines made of
// it.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/ZynDataTextExporter.h"
#include "targets/LogCase.h"

namespace {

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

std::uint32_t SizeOf(const PlacedBytes& bytes) { return static_cast<std::uint32_t>(bytes.Size()); }

// Hands the packets to the listener; raises the damage.
void ReadPackets(const PlacedBytes& bytes, Listener& listener) {
    TracePacketReader packets(bytes.Data(), SizeOf(bytes));
    TracePacket packet;
    while (packets.Next(packet)) {
        TellMeaning(packet, listener);
    }
    if (packets.FoundDamage() != Damage::kNone) {
        RaiseDamage(packets.FoundDamage());
    }
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
    const std::string failure = FailureOf([&] { ReadPackets(bytes, general); });
    RequireEqual(failure, expected.failure, "the general path fails differently");
    Require(general.Values() == expected.values, "the general path reads other values");
    RecordValues usual;
    if (ReadUsualRecord(bytes.Data(), static_cast<std::uint32_t>(bytes.Size()), usual)) {
        RequireEqual(std::string(), expected.failure, "the fast path misses a failure");
        Require(ValuesOf(usual) == expected.values, "the fast path reads other values");
    }
}

// Renders the record on each path that it can take, and again with its time a step later, which
// finds the calendar text of the first time still at hand.
void CheckLines(const LogCase& record, const ModelRecord& expected) {
    static const MemoryFile memory;
    const PlacedBytes bytes(record.log, kReadSlack);
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
        RecordDecoder decoder;
        for (const bool isLater : {false, true}) {
            DecodedRecord decoded = decoder.Decode(bytes.Data(), SizeOf(bytes));
            RecordValues values;
            const bool fast = ReadUsualRecord(bytes.Data(), SizeOf(bytes), values);
            if (isLater) {
                decoded.parts |= DecodedRecord::kTime;
                decoded.values.seconds = values.seconds = later;
                decoded.values.milliseconds = values.milliseconds = record.words[2];
            }
            client.OnRecord(decoded);
            expectLine(isLater);
            if (fast) {
                client.OnValues(values);
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
