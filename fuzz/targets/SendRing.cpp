// Frames sent into a ring whose reader, or whoever else has the region, moves its positions.
#include <cstdint>
#include <string>

#include "TraceService/MessageRing.h"
#include "targets/RingRegion.h"
#include "targets/Support.h"

namespace {

class Session : private RingSession {
  public:
    using RingSession::RingSession;

    void Step(FuzzScript& script) {
        const unsigned int step = script.U8() % 8U;
        switch (step) {
            case 0:
            case 1:
            case 2:
            case 3:
                Disturb(step, script);
                break;
            case 4:
                ReadSome(script.U16());
                break;
            case 5:
                SendWithoutFile(Frame(script));
                break;
            default:
                Send(Frame(script));
                break;
        }
        RequireExpected();
    }

  private:
    // Lengths around what is free and around the tail are the ones that matter, so half of them are
    // counted from there.
    std::string Frame(FuzzScript& script) const {
        const std::uint16_t length = script.U16();
        const std::uint8_t first = script.U8();
        std::uint32_t bytes = length % (region_.Capacity() + 2);
        if ((first & 1U) != 0) {
            const auto [read, write] = WordsOf(expected_);
            const std::uint32_t tail = region_.Capacity() - write % region_.Capacity();
            const std::uint32_t free = (read + region_.Capacity() - write) % region_.Capacity();
            bytes = ((first & 2U) != 0 ? tail : free) + length % 5U;
            bytes -= bytes < 2 ? bytes : 2;
        }
        std::string frame;
        for (std::uint32_t i = 0; i < bytes; ++i) {
            frame += static_cast<char>(first + 3 * i);
        }
        return frame;
    }
    void Send(const std::string& frame) {
        ring_.Append(frame);
        ModelAppend(expected_, region_.Capacity(), frame);
    }
    void SendWithoutFile(const std::string& frame) {
        WithoutFile([&] { ring_.Append(frame); });
    }
    // The reader takes up to count bytes; one whose positions are outside does nothing.
    void ReadSome(std::uint32_t count) {
        auto [read, write] = WordsOf(expected_);
        if (read >= region_.Capacity() || write >= region_.Capacity()) {
            return;
        }
        for (; count != 0 && read != write; --count) {
            read = (read + 1) % region_.Capacity();
        }
        SetRead(expected_, read);
        Write();
    }
};

}  // namespace

int ZynFuzzSendRing(FuzzInput input) {
    FuzzScript script(input);
    RingRegion& region = ChosenRegion(script);
    Session session(region, script.Bytes(script.U8() % 64U));
    RunSteps(session, script);
    return 0;
}
