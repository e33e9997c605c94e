#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "Support/ProcessState.h"

namespace {

mode_t CurrentMask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

class UmaskSectionTest : public testing::Test {
  protected:
    UmaskSectionTest() : before_(umask(027)) {}
    ~UmaskSectionTest() override { umask(before_); }
    UmaskSectionTest(const UmaskSectionTest&) = delete;
    UmaskSectionTest& operator=(const UmaskSectionTest&) = delete;

  private:
    mode_t before_;
};

TEST_F(UmaskSectionTest, SectionSetsZeroAndPutsTheMaskBack) {
    {
        const UmaskSection section;
        EXPECT_EQ(CurrentMask(), 0U);
    }
    EXPECT_EQ(CurrentMask(), 027U);
}

TEST_F(UmaskSectionTest, AbandonEndsTheSectionAndLeavesZero) {
    {
        UmaskSection section;
        section.Abandon();
        section.Abandon();
    }
    EXPECT_EQ(CurrentMask(), 0U);
    umask(027);
    const UmaskSection next;
    EXPECT_EQ(CurrentMask(), 0U) << "the section is over for others too";
}

TEST_F(UmaskSectionTest, ErrnoIsNotTouched) {
    errno = ENOENT;
    { const UmaskSection section; }
    {
        UmaskSection section;
        section.Abandon();
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(UmaskSectionTest, SectionsOfThreadsExcludeEachOther) {
    std::atomic<int> inside{0};
    std::atomic<int> together{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int count = 0; count < 200; ++count) {
                const UmaskSection section;
                together += inside.fetch_add(1) != 0 || CurrentMask() != 0 ? 1 : 0;
                --inside;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(together, 0);
    EXPECT_EQ(CurrentMask(), 027U);
}

}  // namespace
