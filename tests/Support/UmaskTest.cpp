#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "Support/Umask.h"

namespace {

mode_t CurrentMask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

class UmaskTest : public testing::Test {
  protected:
    UmaskTest() : before_(umask(027)) {}
    ~UmaskTest() override { umask(before_); }
    UmaskTest(const UmaskTest&) = delete;
    UmaskTest& operator=(const UmaskTest&) = delete;

  private:
    mode_t before_;
};

TEST_F(UmaskTest, SectionSetsZeroAndPutsTheMaskBack) {
    {
        const UmaskSection section;
        EXPECT_EQ(CurrentMask(), 0U);
    }
    EXPECT_EQ(CurrentMask(), 027U);
}

TEST_F(UmaskTest, RestoreEndsTheSectionEarlyAndOnce) {
    {
        UmaskSection section;
        section.Restore();
        EXPECT_EQ(CurrentMask(), 027U);
        umask(077);
        section.Restore();
    }
    EXPECT_EQ(CurrentMask(), 077U);
}

TEST_F(UmaskTest, AbandonEndsTheSectionAndLeavesZero) {
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

TEST_F(UmaskTest, ErrnoIsNotTouched) {
    errno = ENOENT;
    {
        UmaskSection section;
        section.Restore();
    }
    {
        UmaskSection section;
        section.Abandon();
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(UmaskTest, SectionsOfThreadsExcludeEachOther) {
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
