#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Support/LostPages.h"
#include "Support/SharedMemory.h"
#include "fixtures/DiagnosticTrace.h"

namespace {

class LostPages : public ::testing::Test {
  protected:
    LostPages() { lostpages::Replace(); }
    ~LostPages() override { static_cast<void>(::signal(SIGBUS, SIG_DFL)); }

    void Cut(const std::string& name, off_t size = 0) const {
        ASSERT_EQ(::truncate((run_ / (name + ".map")).c_str(), size), 0);
    }
    static volatile char& At(const SharedMemory& region, std::size_t offset) {
        return region.Address()[offset];
    }

    RunDirectory run_;
};

using LostPagesDeathTest = LostPages;

TEST_F(LostPages, ReadAsZerosAndTakeWhatIsWritten) {
    const SharedMemory region("Region", 524);
    At(region, 3) = 'x';
    Cut("Region");
    EXPECT_EQ(std::string(region.Address(), 524), std::string(524, '\0'));
    At(region, 3) = 'y';
    EXPECT_EQ(At(region, 3), 'y');
    EXPECT_EQ(ReadFile(run_ / "Region.map"), "");
}

TEST_F(LostPages, AreFirstTouchedByAWrite) {
    const SharedMemory region("Region", 524);
    Cut("Region");
    At(region, 500) = 'z';
    EXPECT_EQ(At(region, 500), 'z');
}

TEST_F(LostPages, LeaveThePagesThatAreThere) {
    const SharedMemory region("Region", 1 << 20);
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    At(region, 0) = 'a';
    At(region, page) = 'b';
    At(region, 5 * page) = 'c';
    Cut("Region", static_cast<off_t>(page));
    EXPECT_EQ(At(region, 5 * page), '\0');
    EXPECT_EQ(At(region, page), '\0');
    EXPECT_EQ(At(region, 0), 'a');
    EXPECT_EQ(ReadFile(run_ / "Region.map").substr(0, 1), "a");
}

TEST_F(LostPages, OfAnOpenersRegionAreReplacedToo) {
    WriteFile(run_ / "Region.map", "123456789");
    const SharedMemory region("Region");
    Cut("Region");
    EXPECT_EQ(At(region, 8), '\0');
}

TEST_F(LostPages, ErrnoIsAsItWas) {
    const SharedMemory region("Region", 10);
    Cut("Region");
    errno = ENOTTY;
    EXPECT_EQ(At(region, 0), '\0');
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(LostPages, RegionsThatAreGoneMakeRoomForOthers) {
    for (std::size_t round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<SharedMemory>> regions;
        for (std::size_t number = 0; number < lostpages::kMostRegions; ++number) {
            const std::string name = "Region" + std::to_string(number);
            regions.push_back(std::make_unique<SharedMemory>(name, 10));
            Cut(name);
        }
        EXPECT_TRUE(std::ranges::all_of(regions,
                                        [](const auto& region) { return At(*region, 9) == '\0'; }));
    }
}

TEST_F(LostPagesDeathTest, AnotherMappingsBusErrorEndsTheProcess) {
    const SharedMemory region("Region", 10);
    WriteFile(run_ / "Other.map", "1");
    const int file = ::open((run_ / "Other.map").c_str(), O_RDWR | O_CLOEXEC);
    void* const other = ::mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ASSERT_NE(other, MAP_FAILED);
    ::close(file);
    Cut("Other");
    EXPECT_EXIT(*static_cast<volatile char*>(other) = 'x', ::testing::KilledBySignal(SIGBUS), "");
    ::munmap(other, 1);
}

TEST_F(LostPagesDeathTest, RegionThatIsNoLongerWatchedEndsTheProcess) {
    const SharedMemory region("Region", 10);
    lostpages::Forget(region.Address());
    Cut("Region");
    EXPECT_EXIT(At(region, 0) = 'x', ::testing::KilledBySignal(SIGBUS), "");
}

TEST_F(LostPagesDeathTest, SignalThatIsSentEndsTheProcess) {
    EXPECT_EXIT(static_cast<void>(::raise(SIGBUS)), ::testing::KilledBySignal(SIGBUS), "");
}

}  // namespace
