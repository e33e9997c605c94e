// The packets of one record: what the fast path and the general path read, and the lines made of
// it.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/text/ZynDataTextExporter.h"
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
        DispatchPacket(packet, listener);
    }
    if (packets.FoundDamage() != Damage::kNone) {
        RaiseDamage(packets.FoundDamage());
    }
}

// Both paths read the same, also when the shape is learned from another record of the case.
void RequireSame(const DecodedRecord& fast, const DecodedRecord& general) {
    const RecordValues& a = fast.values;
    const RecordValues& b = general.values;
    Require(fast.parts == general.parts && fast.isPlain == general.isPlain &&
                fast.isComposed == general.isComposed && fast.damage == general.damage,
            "the fast path finds other packets");
    Require(a.seconds == b.seconds && a.milliseconds == b.milliseconds && a.thread == b.thread &&
                a.process == b.process,
            "the fast path reads other numbers");
    const auto same = [](std::string_view one, std::string_view other) {
        return one.data() == other.data() && one.size() == other.size();
    };
    Require(same(a.names[0], b.names[0]) && same(a.names[1], b.names[1]) &&
                same(a.names[2], b.names[2]) && same(a.message, b.message),
            "the fast path reads other texts");
}

void CheckValues(const LogCase& record, const ModelRecord& expected) {
    const PlacedBytes exact(record.log, 0);
    Listener general;
    const std::string failure = FailureOf([&] { ReadPackets(exact, general); });
    RequireEqual(failure, expected.failure, "the general path fails differently");
    Require(general.Values() == expected.values, "the general path reads other values");

    const PlacedBytes bytes(record.log, kReadSlack);
    DecodedRecord decoded;
    DecodePackets(bytes.Data(), SizeOf(bytes), decoded);
    Require((decoded.damage != Damage::kNone) == !expected.failure.empty(), "other damage");
    // Keeps what it has learned from the cases before.
    static RecordDecoder decoder;
    RequireSame(decoder.Decode(bytes.Data(), SizeOf(bytes)), decoded);
    RequireSame(decoder.Decode(bytes.Data(), SizeOf(bytes)), decoded);
    RecordShape shape;
    if (shape.Learn(bytes.Data(), SizeOf(bytes))) {
        Require(shape.Match(bytes.Data(), SizeOf(bytes)), "a record has not its own shape");
        RequireSame(shape.Record(), decoded);
    }
}

// Renders the record as each path reads it, and again with its time a step later, which finds the
// calendar text of the first time still at hand.
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
        RecordDecoder decoder;
        for (const bool isLater : {false, true}) {
            std::vector<ModelValue> values = expected.values;
            DecodedRecord general;
            DecodePackets(bytes.Data(), SizeOf(bytes), general);
            decoder.Decode(bytes.Data(), SizeOf(bytes));
            DecodedRecord fast = decoder.Decode(bytes.Data(), SizeOf(bytes));
            if (isLater) {
                for (DecodedRecord* decoded : {&general, &fast}) {
                    decoded->parts |= DecodedRecord::kTime;
                    decoded->isPlain = !decoded->isComposed;
                    decoded->values.seconds = later;
                    decoded->values.milliseconds = record.words[2];
                }
                values.push_back({ModelValue::Kind::kTime, 0, later, record.words[2], {}});
            }
            client.OnRecord(general);
            client.OnRecord(fast);
            const std::string line = ModelLine(values, record.separator, kFuzzNow);
            expectedLines += line + line;
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
