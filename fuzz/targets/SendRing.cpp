// Frames sent into a ring whose reader, or whoever else has the region, moves its positions.
#include <cstdint>
#include <string>

#include "TraceService/MessageRing.h"
#include "targets/RingRegion.h"
#include "targets/Support.h"

namespace {

class Session {
  public:
    Session(RingRegion& region, std::string_view image)
        : region_(region), ring_(region.Memory(), region.Capacity()) {
        region_.SetContent(image);
        expected_ = std::string(region_.Content());
    }

    void Step(FuzzScript& script) {
        switch (script.U8() % 8U) {
            case 0:
                SetRead(expected_, script.U16() % region_.Capacity());
                Write();
                break;
            case 1:
                SetWrite(expected_, script.U16() % region_.Capacity());
                Write();
                break;
            case 2:
                SetRead(expected_, script.U32());
                SetWrite(expected_, script.U32());
                Write();
                break;
            case 3:
                ring_.Initialise();
                EmptyRing(expected_, region_.Capacity());
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
        RequireEqual(region_.Content(), expected_, "another region");
    }

  private:
    void Write() { region_.Overwrite(0, expected_); }

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
        region_.LoseFile();
        ring_.Append(frame);
        ring_.Initialise();
        region_.RestoreFile();
        expected_.assign(expected_.size(), '\0');
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

    RingRegion& region_;
    MessageRing ring_;
    std::string expected_;
};

}  // namespace

int ZynFuzzSendRing(FuzzInput input) {
    static RingRegion small(MessageRing::kMessageCapacity);
    static RingRegion page(RingRegion::kPageCapacity);
    FuzzScript script(input);
    RingRegion& region = script.U8() % 2U == 0 ? small : page;
    Session session(region, script.Bytes(script.U8() % 64U));
    constexpr int kMostSteps = 500;
    for (int i = 0; i < kMostSteps && !script.AtEnd(); ++i) {
        session.Step(script);
    }
    return 0;
}
