#include "TraceData/RecordDecoder.h"

#include <array>
#include <cstddef>

#include "TraceData/Digits.h"

namespace {

// Fills a record with the values of its packets.
class RecordFiller {
  public:
    explicit RecordFiller(DecodedRecord& record) noexcept : record_(record) {}

    void OnRead(std::string_view text, std::uint16_t id) noexcept {
        constexpr std::uint8_t kNameParts[] = {DecodedRecord::kModule, DecodedRecord::kClient,
                                               DecodedRecord::kLabel};
        // Three ids in a row.
        const unsigned int name = unsigned{id} - kModulePacketId;
        if (name < record_.values.names.size()) {
            record_.values.names[name] = text;
            record_.parts |= kNameParts[name];
        } else if (id == kMessagePacketId) {
            OnMessage(text);
        }
    }
    void OnThread(std::uint32_t number) noexcept {
        record_.values.thread = number;
        record_.parts |= DecodedRecord::kThread;
    }
    void OnProcess(std::uint32_t number) noexcept {
        record_.values.process = number;
        record_.parts |= DecodedRecord::kProcess;
    }
    void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) noexcept {
        record_.values.seconds = seconds;
        record_.values.milliseconds = milliseconds;
        record_.parts |= DecodedRecord::kTime;
    }
    void OnControl(std::uint32_t /*code*/, std::uint32_t /*process*/) noexcept {
        record_.parts |= DecodedRecord::kControl;
        record_.isComposed = true;
    }

  private:
    void OnMessage(std::string_view text) noexcept {
        if (record_.Has(DecodedRecord::kMessage)) {
            record_.isComposed = true;
            return;
        }
        record_.values.message = text;
        record_.parts |= DecodedRecord::kMessage;
    }

    DecodedRecord& record_;
};

}  // namespace

const DecodedRecord& RecordDecoder::Decode(const char* data, std::uint32_t length) noexcept {
    record_ = DecodedRecord();
    record_.data = data;
    record_.length = length;
    RecordFiller filler(record_);
    TracePacketReader packets(data, length);
    TracePacket packet;
    while (packets.Next(packet)) {
        TellMeaning(packet, filler);
    }
    record_.damage = packets.FoundDamage();
    record_.damageOffset = packets.Offset();
    return record_;
}

CFastStr<128> ControlMessage(std::uint32_t code, std::uint32_t process) {
    std::array<char, 10> digits;
    const auto decimal = [&digits](std::uint32_t value) {
        char* end = digits.data() + digits.size();
        const char* begin = PutDigitsBackwards(end, value);
        return std::string_view(begin, static_cast<std::size_t>(end - begin));
    };
    CFastStr<128> message("[Control message from process ");
    message.Append(decimal(process));
    message.Append("]:");
    if (const std::string_view meaning = ControlText(code); !meaning.empty()) {
        message.Append(meaning);
    } else {
        message.Append("Unknown control message:");
        message.Append(decimal(code));
    }
    message.Append(" ");
    return message;
}

void AppendMessage(const DecodedRecord& record, std::string& out) {
    if (!record.isComposed) {
        out.append(record.values.message);
        return;
    }
    ForEachMessagePart(
        record, [&out](std::string_view text) { out.append(text); },
        [&out](std::uint32_t code, std::uint32_t process) {
            out.append(ControlMessage(code, process).View());
        });
}
