// A client's receiving ring while another program writes into its region whatever it likes: which
// messages arrive, what is consumed, and that nothing outside the region is touched.
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "TraceService/TraceService.h"
#include "targets/RingRegion.h"
#include "targets/Support.h"

namespace {

constexpr const char* kInsufficient = "Bad logic:Insufficent data to be read";

// The words of each message, as many as are read of its type.
using Messages = std::vector<std::vector<std::uint32_t>>;

std::size_t WordsRead(std::uint32_t type) { return type == 2 ? 3 : 2; }

class Recorder {
  public:
    explicit Recorder(Messages& messages) noexcept : messages_(messages) {}

    void Handle(const MessageHeader* header) {
        std::vector<std::uint32_t> words{header->processId,
                                         static_cast<std::uint32_t>(header->type)};
        if (header->type == MessageType::kRuntimeConfigurationChange) {
            const auto* record = reinterpret_cast<const MessageRuntimeConfigurationChange*>(header);
            words.push_back(static_cast<std::uint32_t>(record->change));
        }
        messages_.push_back(std::move(words));
    }

  private:
    Messages& messages_;
};

// The receiver as a loop over single bytes.
class ModelReceiver {
  public:
    ModelReceiver(std::string& region, std::uint32_t capacity) noexcept
        : region_(region), capacity_(capacity) {}

    // Reads at most one frame. False when the ring does not hold what the frame promises.
    bool Poll(Messages& messages) {
        const auto [read, write] = WordsOf(region_);
        if (read == write) {
            return true;
        }
        if (read >= capacity_ || write >= capacity_) {
            if (write < capacity_) {
                SetRead(region_, write);
            } else {
                EmptyRing(region_, capacity_);
            }
            return false;
        }
        std::string piece;
        if (!Take(1, piece)) {
            return false;
        }
        const auto head = static_cast<unsigned char>(piece[0]);
        if ((head & 0x20U) != 0 && !Take(2, piece)) {
            return false;
        }
        constexpr std::array<std::uint32_t, 8> kImplied{0, 1, 1, 2, 4, 8, 0, 0};
        const unsigned int kind = head & 0x0FU;
        std::uint32_t length = kind < 8 ? kImplied[kind] : 0;
        if (kind >= 8) {
            if (!Take(4, piece)) {
                return false;
            }
            length = WordIn(piece, 0);
        }
        if (kind == 10 && length > 1024) {
            return false;
        }
        if (!Take(length, piece)) {
            return false;
        }
        if (kind == 10) {
            Deliver(piece, messages);
        }
        return true;
    }

  private:
    static std::uint32_t WordIn(const std::string& bytes, std::size_t offset) {
        std::uint32_t word = 0;
        for (std::size_t i = 4; i-- != 0;) {
            word = word << 8U | static_cast<unsigned char>(bytes[offset + i]);
        }
        return word;
    }
    static void Deliver(const std::string& message, Messages& messages) {
        if (message.size() < 8) {
            return;
        }
        const std::size_t count = WordsRead(WordIn(message, 4));
        if (message.size() < 4 * count) {
            return;
        }
        std::vector<std::uint32_t> words;
        for (std::size_t i = 0; i < count; ++i) {
            words.push_back(WordIn(message, 4 * i));
        }
        messages.push_back(std::move(words));
    }
    // All of the bytes, or none.
    bool Take(std::uint32_t count, std::string& piece) {
        auto [read, write] = WordsOf(region_);
        piece.clear();
        while (piece.size() < count) {
            if (read == write) {
                return false;
            }
            piece += region_[MessageRing::kHeaderBytes + read];
            read = (read + 1) % capacity_;
        }
        SetRead(region_, read);
        return true;
    }

    std::string& region_;
    std::uint32_t capacity_;
};

class Session : private RingSession {
  public:
    using RingSession::RingSession;

    void Step(FuzzScript& script) {
        const std::uint8_t step = script.U8();
        switch (step % 12U) {
            case 3:
                AppendMessage(script);
                break;
            case 4:
                AppendFrame(script);
                break;
            case 5:
                Append(script.Bytes(script.U8()));
                break;
            case 6: {
                const std::size_t offset = script.U16() % region_.Bytes();
                Overwrite(offset, script.Bytes(script.U8()));
                break;
            }
            case 7:
            case 8:
            case 9:
            case 10:
                Disturb(step % 12U - 7, script);
                break;
            case 11:
                PollWithoutFile();
                break;
            default:
                Poll();
                break;
        }
        RequireExpected();
    }

  private:
    void Overwrite(std::size_t offset, std::string_view bytes) {
        expected_.replace(offset, bytes.size(), bytes.substr(0, expected_.size() - offset));
        Write();
    }
    void Append(std::string_view frame) {
        ModelAppend(expected_, region_.Capacity(), frame);
        Write();
    }
    static std::string Framed(char head, std::string_view payload) {
        std::string frame(1, head);
        for (unsigned int shift = 0; shift < 32; shift += 8) {
            frame += static_cast<char>(payload.size() >> shift);
        }
        return frame.append(payload);
    }
    // A message of a likely type, of about the right length.
    void AppendMessage(FuzzScript& script) {
        const std::uint8_t type = script.U8();
        std::string payload(script.Bytes(4));
        payload += static_cast<char>(type % 6U);
        payload.append(3, '\0');
        payload += script.Bytes(type >> 4U);
        Append(Framed('\x0A', payload));
    }
    // A frame of any kind, with the length that it says.
    void AppendFrame(FuzzScript& script) {
        const std::uint8_t head = script.U8();
        constexpr std::array<std::size_t, 8> kImplied{0, 1, 1, 2, 4, 8, 0, 0};
        const unsigned int kind = head & 0x0FU;
        std::string frame;
        if (kind < kImplied.size()) {
            frame = static_cast<char>(head) + std::string(script.Bytes(kImplied[kind]));
        } else {
            frame = Framed(static_cast<char>(head), script.Bytes(script.U16() % 1100U));
        }
        if ((head & 0x20U) != 0) {
            frame.insert(1, "id");
        }
        Append(frame);
    }

    void Poll() {
        Messages messages;
        Recorder recorder(messages);
        const std::string failure = FailureOf([&] { ReceiveFrame(ring_, recorder); });
        Messages expected;
        const bool whole = ModelReceiver(expected_, region_.Capacity()).Poll(expected);
        RequireEqual(failure, whole ? "" : kInsufficient, "a poll ends differently");
        Require(messages == expected, "other messages arrive");
        Require(ring_.HoldsBytes() == (WordsOf(expected_).read != WordsOf(expected_).write),
                "the ring holds bytes, or holds none");
    }
    void PollWithoutFile() {
        WithoutFile([&] {
            Messages messages;
            Recorder recorder(messages);
            const std::string failure = FailureOf([&] { ReceiveFrame(ring_, recorder); });
            Require(failure.empty() && messages.empty(), "a lost region gives messages");
        });
    }
};

}  // namespace

int ZynFuzzReceiveRing(FuzzInput input) {
    FuzzScript script(input);
    RingRegion& region = ChosenRegion(script);
    Session session(region, script.Bytes(script.U16() % (region.Bytes() + 1)));
    RunSteps(session, script);
    return 0;
}
