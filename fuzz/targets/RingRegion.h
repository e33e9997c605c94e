// The region of a message ring between forbidden pages, with bytes behind it that nobody may touch.
#ifndef ZYN_FUZZ_TARGETS_RINGREGION_H
#define ZYN_FUZZ_TARGETS_RINGREGION_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Support/SharedMemory.h"
#include "TraceService/MessageRing.h"
#include "targets/Support.h"
#include "testing/process/Files.h"

// One per process and capacity: pages take long to arrange.
class RingRegion {
  public:
    static constexpr std::uint32_t kPageBytes = 4096;
    // A ring whose data area ends with its page.
    static constexpr std::uint32_t kPageCapacity = kPageBytes - MessageRing::kHeaderBytes;

    explicit RingRegion(std::uint32_t capacity);
    ~RingRegion();
    RingRegion(const RingRegion&) = delete;
    RingRegion& operator=(const RingRegion&) = delete;

    [[nodiscard]] std::uint32_t Capacity() const noexcept { return capacity_; }
    [[nodiscard]] std::uint32_t Bytes() const noexcept {
        return MessageRing::RegionBytes(capacity_);
    }
    [[nodiscard]] SharedMemory& Memory() noexcept { return *memory_; }
    [[nodiscard]] std::string_view Content() const noexcept {
        return {memory_->Address(), Bytes()};
    }
    // The region's bytes become the image, and 0 behind its end.
    void SetContent(std::string_view image) noexcept;
    // What does not fit is left out.
    void Overwrite(std::size_t offset, std::string_view bytes) noexcept;
    // Takes the file's bytes away, as another program can, or gives back as many zero bytes.
    void LoseFile() const;
    void RestoreFile() const;

  private:
    // A page that nobody may touch.
    class ForbiddenPage {
      public:
        // Null: wherever there is room. Else exactly there.
        explicit ForbiddenPage(char* address) noexcept;
        ForbiddenPage(ForbiddenPage&& other) noexcept;
        ForbiddenPage& operator=(ForbiddenPage&& other) noexcept;
        ForbiddenPage(const ForbiddenPage&) = delete;
        ForbiddenPage& operator=(const ForbiddenPage&) = delete;
        ~ForbiddenPage();
        [[nodiscard]] const char* Address() const noexcept { return address_; }

      private:
        char* address_ = nullptr;
    };

    void Resize(std::uint32_t bytes) const;
    void SetReachable(bool reachable) noexcept;

    std::uint32_t capacity_;
    TempDirectory directory_;
    std::string path_;
    std::unique_ptr<SharedMemory> memory_;
    std::vector<ForbiddenPage> guards_;
};

// The words at the start of a region.
struct RingWords {
    std::uint32_t read;
    std::uint32_t write;
};
[[nodiscard]] RingWords WordsOf(std::string_view region) noexcept;
void SetRead(std::string& region, std::uint32_t value) noexcept;
void SetWrite(std::string& region, std::uint32_t value) noexcept;
void EmptyRing(std::string& region, std::uint32_t capacity) noexcept;

// Appends a frame byte by byte as the other side would: nothing when it does not fit or a position
// lies outside. The result is whether it was written.
bool ModelAppend(std::string& region, std::uint32_t capacity, std::string_view frame);

// A ring and what its region must hold, for a script of steps.
class RingSession {
  public:
    RingSession(RingRegion& region, std::string_view image);

  protected:
    // One of the four ways (0 to 3) in which whoever has the region moves its positions.
    void Disturb(unsigned int way, FuzzScript& script);
    void Write() { region_.Overwrite(0, expected_); }
    // Runs the action while the region has lost its file, which comes back without its bytes.
    template <typename Action>
    void WithoutFile(Action&& action) {
        region_.LoseFile();
        action();
        ring_.Initialise();
        region_.RestoreFile();
        expected_.assign(expected_.size(), '\0');
    }
    void RequireExpected() const { RequireEqual(region_.Content(), expected_, "another region"); }

    RingRegion& region_;
    MessageRing ring_;
    std::string expected_;
};

// The region for a script, by its first byte: small, or as large as a page.
[[nodiscard]] RingRegion& ChosenRegion(FuzzScript& script);

template <typename Session>
void RunSteps(Session& session, FuzzScript& script) {
    constexpr int kMostSteps = 500;
    for (int i = 0; i < kMostSteps && !script.AtEnd(); ++i) {
        session.Step(script);
    }
}

#endif
