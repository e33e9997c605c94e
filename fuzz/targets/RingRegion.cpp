#include "targets/RingRegion.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "testing/process/EnvironmentVariable.h"

#if defined(__SANITIZE_ADDRESS__)
#define ZYN_FUZZ_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZYN_FUZZ_ADDRESS_SANITIZER
#endif
#endif
#ifdef ZYN_FUZZ_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace {

void StoreWord(std::string& region, std::size_t offset, std::uint32_t value) noexcept {
    for (std::size_t i = 0; i < 4; ++i) {
        region[offset + i] = static_cast<char>(value >> (8 * i));
    }
}

std::uint32_t WordAt(std::string_view region, std::size_t offset) noexcept {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        word |= std::uint32_t{static_cast<unsigned char>(region[offset + i])} << (8 * i);
    }
    return word;
}

}  // namespace

RingRegion::ForbiddenPage::ForbiddenPage(char* address) noexcept {
    const int fixed = address != nullptr ? MAP_FIXED_NOREPLACE : 0;
    void* page = mmap(address, kPageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | fixed, -1, 0);
    if (page != MAP_FAILED) {
        address_ = static_cast<char*>(page);
    }
}

RingRegion::ForbiddenPage::ForbiddenPage(ForbiddenPage&& other) noexcept
    : address_(std::exchange(other.address_, nullptr)) {}

RingRegion::ForbiddenPage& RingRegion::ForbiddenPage::operator=(ForbiddenPage&& other) noexcept {
    std::swap(address_, other.address_);
    return *this;
}

RingRegion::ForbiddenPage::~ForbiddenPage() {
    if (address_ != nullptr) {
        munmap(address_, kPageBytes);
    }
}

// The system chooses the place of a mapping, mostly just below the last one: so the page behind the
// region is taken first. Where that does not come out the mappings are kept, which fills the gaps
// that led astray.
RingRegion::RingRegion(std::uint32_t capacity) : capacity_(capacity) {
    constexpr int kTries = 200;
    const std::string directory = directory_.MakeDirectory("temp/ZYN");
    const EnvironmentVariable here("KORVA_VANTOREL_DIR", directory_.Path());
    std::vector<std::unique_ptr<SharedMemory>> astray;
    for (int i = 0; i < kTries; ++i) {
        const std::string name = "ZynFuzzRegion" + std::to_string(i);
        ForbiddenPage behind(nullptr);
        memory_ = std::make_unique<SharedMemory>(name, static_cast<int>(kPageBytes));
        char* const wanted = memory_->Address() + kPageBytes;
        if (behind.Address() != wanted) {
            guards_.push_back(std::move(behind));
            behind = ForbiddenPage(wanted);
        }
        ForbiddenPage before(memory_->Address() - kPageBytes);
        const bool guarded =
            behind.Address() == wanted && before.Address() == memory_->Address() - kPageBytes;
        guards_.push_back(std::move(behind));
        guards_.push_back(std::move(before));
        if (guarded) {
            path_ = directory;
            path_.append("/").append(name).append(".map");
            SetReachable(false);
            return;
        }
        astray.push_back(std::move(memory_));
    }
    throw std::runtime_error("no place between two free pages was found");
}

RingRegion::~RingRegion() { SetReachable(true); }

void RingRegion::LoseFile() const { Resize(0); }
void RingRegion::RestoreFile() const { Resize(kPageBytes); }

void RingRegion::Resize(std::uint32_t bytes) const {
    if (truncate(path_.c_str(), static_cast<off_t>(bytes)) != 0) {
        throw std::runtime_error("cannot resize the region's file");
    }
}

// Of a region shorter than its page, what lies behind it is guarded by AddressSanitizer alone.
void RingRegion::SetReachable([[maybe_unused]] bool reachable) noexcept {
#ifdef ZYN_FUZZ_ADDRESS_SANITIZER
    if (reachable) {
        __asan_unpoison_memory_region(memory_->Address(), kPageBytes);
    } else {
        __asan_poison_memory_region(memory_->Address() + Bytes(), kPageBytes - Bytes());
    }
#endif
}

void RingRegion::SetContent(std::string_view image) noexcept {
    std::memset(memory_->Address(), 0, Bytes());
    Overwrite(0, image);
}

void RingRegion::Overwrite(std::size_t offset, std::string_view bytes) noexcept {
    if (offset < Bytes() && !bytes.empty()) {
        std::memcpy(memory_->Address() + offset, bytes.data(),
                    std::min<std::size_t>(bytes.size(), Bytes() - offset));
    }
}

RingWords WordsOf(std::string_view region) noexcept {
    return {WordAt(region, 0), WordAt(region, 4)};
}

void SetRead(std::string& region, std::uint32_t value) noexcept { StoreWord(region, 0, value); }
void SetWrite(std::string& region, std::uint32_t value) noexcept { StoreWord(region, 4, value); }

void EmptyRing(std::string& region, std::uint32_t capacity) noexcept {
    SetRead(region, 0);
    SetWrite(region, 0);
    StoreWord(region, 8, capacity);
}

bool ModelAppend(std::string& region, std::uint32_t capacity, std::string_view frame) {
    auto [read, write] = WordsOf(region);
    if (read >= capacity || write >= capacity) {
        return false;
    }
    std::string written = region;
    for (const char byte : frame) {
        const std::uint32_t next = (write + 1) % capacity;
        if (next == read) {
            return false;
        }
        written[MessageRing::kHeaderBytes + write] = byte;
        write = next;
    }
    SetWrite(written, write);
    region = written;
    return true;
}

RingSession::RingSession(RingRegion& region, std::string_view image)
    : region_(region), ring_(region.Memory(), region.Capacity()) {
    region_.SetContent(image);
    expected_ = std::string(region_.Content());
}

void RingSession::Disturb(unsigned int way, FuzzScript& script) {
    switch (way) {
        case 0:
            SetRead(expected_, script.U16() % region_.Capacity());
            break;
        case 1:
            SetWrite(expected_, script.U16() % region_.Capacity());
            break;
        case 2:
            SetRead(expected_, script.U32());
            SetWrite(expected_, script.U32());
            break;
        default:
            ring_.Initialise();
            EmptyRing(expected_, region_.Capacity());
            return;
    }
    Write();
}

RingRegion& ChosenRegion(FuzzScript& script) {
    static RingRegion small(MessageRing::kMessageCapacity);
    static RingRegion page(RingRegion::kPageCapacity);
    return script.U8() % 2U == 0 ? small : page;
}
