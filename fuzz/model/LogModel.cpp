#include "model/LogModel.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <map>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::size_t kLongest = 2048;
constexpr std::size_t kReorderLimit = 1000;
constexpr const char* kBadLength = "Bad logic:Incorrect data length for specified data type.";

// Takes bytes off the front of a text; what it says when they are not there depends on where it
// reads.
class Source {
  public:
    Source(std::string_view bytes, const char* failure) : bytes_(bytes), failure_(failure) {}

    std::string_view Take(std::uint64_t count) {
        if (count > bytes_.size()) {
            throw std::runtime_error(failure_);
        }
        const std::string_view taken = bytes_.substr(0, static_cast<std::size_t>(count));
        bytes_.remove_prefix(taken.size());
        return taken;
    }
    std::uint32_t Number(unsigned int bytes) {
        std::uint32_t value = 0;
        unsigned int shift = 0;
        for (const char character : Take(bytes)) {
            value |= std::uint32_t{static_cast<unsigned char>(character)} << shift;
            shift += 8;
        }
        return value;
    }
    [[nodiscard]] std::size_t Left() const { return bytes_.size(); }

  private:
    std::string_view bytes_;
    const char* failure_;
};

struct Head {
    std::uint32_t flags;
    std::uint16_t id;
    std::uint32_t length;
};

Head TakeHead(Source& source) {
    Head head{source.Number(1), 0, 0};
    if ((head.flags & 0x20U) != 0) {
        head.id = static_cast<std::uint16_t>(source.Number(2));
    }
    switch (head.flags & 0x0FU) {
        case 1:
        case 2:
            head.length = 1;
            break;
        case 3:
            head.length = 2;
            break;
        case 4:
            head.length = 4;
            break;
        case 5:
            head.length = 8;
            break;
        default:
            head.length = (head.flags & 0x08U) != 0 ? source.Number(4) : 0;
    }
    return head;
}

// The word at an offset of a structure that may have been cut short: missing bytes are 0.
std::uint32_t WordOf(std::string_view payload, std::size_t offset) {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 4 && offset + i < payload.size(); ++i) {
        word |= std::uint32_t{static_cast<unsigned char>(payload[offset + i])} << (8 * i);
    }
    return word;
}

std::optional<ModelValue> TakeValue(Source& source) {
    using Kind = ModelValue::Kind;
    const Head head = TakeHead(source);
    const std::string_view payload = source.Take(head.length);
    const std::uint32_t type = head.flags & 0x0FU;
    if (type == 9) {
        return ModelValue{Kind::kText, head.id, 0, 0, std::string(payload)};
    }
    if (type == 4 && (head.flags & 0x10U) == 0 && (head.id == 3 || head.id == 4)) {
        return ModelValue{
            head.id == 3 ? Kind::kThread : Kind::kProcess, 0, WordOf(payload, 0), 0, {}};
    }
    if (type == 10 && head.id == 2) {
        return ModelValue{Kind::kTime, 0, WordOf(payload, 0), WordOf(payload, 4) & 0xFFFFU, {}};
    }
    if (type == 10 && head.id == 6) {
        return ModelValue{Kind::kControl, 0, WordOf(payload, 0), WordOf(payload, 4), {}};
    }
    return std::nullopt;
}

std::string RightAligned(const std::string& text, std::size_t width, char filler = ' ') {
    return text.size() < width ? std::string(width - text.size(), filler) + text : text;
}

std::string ControlMessage(std::uint32_t code, std::uint32_t process) {
    constexpr std::array<const char*, 8> kTexts{"",
                                                "Client attached",
                                                "Client detached",
                                                "Pauseed tracing",
                                                "Resumeed tracing",
                                                "Reloaded configuration",
                                                "Turned on preservation",
                                                "Turned off preservation"};
    const bool known = code >= 1 && code < kTexts.size();
    return "[Control message from process " + std::to_string(process) + "]:" +
           (known ? std::string(kTexts[code]) : "Unknown control message:" + std::to_string(code)) +
           " ";
}

// Each piece that ends in a line feed, with the line feed and the blanks of the next line; all from
// the last line feed on is cut off again.
std::string MessageText(const std::string& text) {
    if (text.find('\n') == std::string::npos) {
        return text;
    }
    std::string result;
    std::size_t begin = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos;
         end = text.find('\n', begin)) {
        result += text.substr(begin, end - begin) + "\n" + std::string(79, ' ');
        begin = end + 1;
    }
    return result.substr(0, result.rfind('\n'));
}

std::string Fitted(const std::string& text, std::size_t width) {
    if (text.size() <= width) {
        return text + std::string(width - text.size(), ' ');
    }
    // Two full stops and the last two characters.
    return text.substr(0, width - 4) + ".." + text.substr(text.size() - 2);
}

std::string DateAndTime(std::uint32_t seconds, std::uint32_t milliseconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    const auto two = [](int value) { return RightAligned(std::to_string(value), 2, '0'); };
    return two(local.tm_mon + 1) + "/" + two(local.tm_mday) + "/" +
           RightAligned(std::to_string(local.tm_year + 1900), 4) + " " + two(local.tm_hour) + ":" +
           two(local.tm_min) + ":" + two(local.tm_sec) + "." +
           RightAligned(std::to_string(milliseconds), 3, '0');
}

// The records of one block that are held back to be put in order.
class Held {
  public:
    Held(ModelExport& result, std::string_view separator, ModelClock now)
        : result_(result), separator_(separator), now_(now) {}

    void Push(std::uint32_t number, std::string_view data) {
        if (records_.size() >= kReorderLimit) {
            EmitSmallest();
        }
        records_.emplace(std::pair(number, arrivals_++), data);
    }
    void Drain() {
        while (!records_.empty()) {
            EmitSmallest();
        }
    }

  private:
    void EmitSmallest() {
        const ModelRecord record = ModelDecode(records_.begin()->second);
        if (!record.failure.empty()) {
            throw std::runtime_error(record.failure);
        }
        result_.lines += ModelLine(record.values, separator_, now_);
        ++result_.records;
        records_.erase(records_.begin());
    }

    ModelExport& result_;
    std::string_view separator_;
    ModelClock now_;
    std::uint32_t arrivals_ = 0;
    // By sequence number, then arrival.
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::string_view> records_;
};

void ReadBlock(Source& log, Held& held) {
    if (TakeHead(log).length != 40) {
        throw std::runtime_error(kBadLength);
    }
    log.Take(36);
    const std::uint32_t size = log.Number(4);
    Source block(log.Take(size), "");
    try {
        while (block.Left() != 0) {
            if (TakeHead(block).length != 8) {
                break;
            }
            const std::uint32_t number = block.Number(4);
            const std::uint32_t length = block.Number(4);
            held.Push(number, block.Take(length));
        }
    } catch (const std::runtime_error&) {
        // Damage ends the block; a record that cannot be emitted fails again below.
    }
    held.Drain();
}

}  // namespace

ModelRecord ModelDecode(std::string_view record) {
    ModelRecord result;
    Source source(record, "Bad logic:Insufficent data to read");
    try {
        while (source.Left() != 0) {
            if (auto value = TakeValue(source)) {
                result.values.push_back(std::move(*value));
            }
        }
    } catch (const std::runtime_error& failure) {
        result.failure = failure.what();
    }
    return result;
}

std::string ModelLine(const std::vector<ModelValue>& values, std::string_view separatorText,
                      ModelClock now) {
    const std::string separator(separatorText.substr(0, 50));
    std::array<std::string, 3> names;
    std::string message;
    std::uint32_t thread = 0;
    std::uint32_t process = 0;
    for (const ModelValue& value : values) {
        switch (value.kind) {
            case ModelValue::Kind::kText:
                if (value.id >= 32 && value.id <= 34) {
                    names[value.id - 32U] = value.text.substr(0, 50);
                } else if (value.id == 0) {
                    message = message.append(MessageText(value.text)).substr(0, kLongest);
                }
                break;
            case ModelValue::Kind::kThread:
                thread = value.first;
                break;
            case ModelValue::Kind::kProcess:
                process = value.first;
                break;
            case ModelValue::Kind::kTime:
                now = {value.first, value.second};
                break;
            case ModelValue::Kind::kControl:
                message =
                    message.append(ControlMessage(value.first, value.second)).substr(0, kLongest);
                break;
        }
    }
    if (separator.starts_with(' ')) {
        names = {Fitted(names[0], 12), Fitted(names[1], 10), Fitted(names[2], 12)};
    }
    std::string line = DateAndTime(now.seconds, now.milliseconds) + separator +
                       RightAligned(std::to_string(process), 5) + separator +
                       RightAligned(std::to_string(thread), 10) + separator + names[0] + separator +
                       names[1] + separator + names[2] + separator + message;
    line.resize(std::min(line.size(), kLongest));
    return line.size() < kLongest ? line + "\n" : line;
}

ModelExport ModelExportLog(std::string_view log, std::string_view separator, ModelClock now,
                           std::optional<std::size_t> blocks) {
    ModelExport result;
    Source source(log, "Bad logic:No more files available for read");
    try {
        for (std::size_t i = 0; blocks ? i < *blocks : source.Left() != 0; ++i) {
            Held held(result, separator, now);
            ReadBlock(source, held);
            result.position = log.size() - source.Left();
        }
    } catch (const std::runtime_error& failure) {
        result.failure = failure.what();
    }
    return result;
}
