#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include "Support/FileSystem.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/process/Files.h"

namespace {

using Names = std::vector<std::string>;

class DirectoryListingTest : public testing::Test {
  protected:
    void Make(const std::string& name) { WriteFile(directory_ / name, ""); }
    // A clock tick may be too long to tell two changes apart, so the time is set.
    void SetTime(std::time_t seconds, long nanoseconds = 0) {
        const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(utimensat(AT_FDCWD, directory_.Path().c_str(), times, 0), 0);
    }

    TempDirectory directory_;
    DirectoryListing listing_{directory_.Path(), "zynlog-", ".txt"};
};

TEST_F(DirectoryListingTest, NamesAreInBytewiseOrder) {
    for (const char* name : {"zynlog-2.txt", "zynlog-10.txt", "other.txt", "zynlog-3.log"}) {
        Make(name);
    }
    EXPECT_EQ(listing_.Names(), (Names{"zynlog-10.txt", "zynlog-2.txt"}));
}

TEST_F(DirectoryListingTest, ReadsAnewWhenTheDirectoryHasChanged) {
    Make("zynlog-1.txt");
    SetTime(1000);
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
    Make("zynlog-2.txt");
    SetTime(2000);
    EXPECT_EQ(listing_.Names(), (Names{"zynlog-1.txt", "zynlog-2.txt"}));
}

TEST_F(DirectoryListingTest, NanosecondsTellTwoChangesApart) {
    Make("zynlog-1.txt");
    SetTime(1000, 1);
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
    Make("zynlog-2.txt");
    SetTime(1000, 2);
    EXPECT_EQ(listing_.Names(), (Names{"zynlog-1.txt", "zynlog-2.txt"}));
}

TEST_F(DirectoryListingTest, ListingThatBrokeOffIsReadAnewThoughNothingHasChanged) {
    Make("zynlog-1.txt");
    {
        const LibcFault fault(LibcCall::kReaddir, EIO);
        EXPECT_EQ(FailureTextOf([this] { listing_.Names(); }),
                  "Can not read directory [OS call failed:5(Input/output error)]");
    }
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
}

TEST_F(DirectoryListingTest, IsNotReadAnewWhileTheTimeOfChangeStands) {
    Make("zynlog-1.txt");
    SetTime(1000);
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
    Make("zynlog-2.txt");
    SetTime(1000);
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
}

TEST_F(DirectoryListingTest, PrefixSelectsTheFileAndThoseThatExtendItsName) {
    for (const char* name : {"zynlog-1.txt", "zynlog-1.txt.2", "zynlog-10.txt", "zynlog-2.txt"}) {
        Make(name);
    }
    const auto chosen = listing_.NamesWithPrefix("zynlog-1");
    EXPECT_EQ(Names(chosen.begin(), chosen.end()),
              (Names{"zynlog-1.txt", "zynlog-1.txt.2", "zynlog-10.txt"}));
    EXPECT_TRUE(listing_.NamesWithPrefix("zynlog-3").empty());
}

TEST_F(DirectoryListingTest, OwnChangeNeedsNoReading) {
    Make("zynlog-1.txt");
    EXPECT_FALSE(listing_.IsCurrent()) << "never read";
    SetTime(1000);
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
    EXPECT_TRUE(listing_.IsCurrent());
    Make("own.txt");
    SetTime(2000);
    EXPECT_FALSE(listing_.IsCurrent());
    listing_.TakeOwnChange();
    EXPECT_TRUE(listing_.IsCurrent());
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
    EXPECT_EQ(listing_.Readings(), 1U);
    Make("zynlog-2.txt");
    SetTime(3000);
    EXPECT_EQ(listing_.Names(), (Names{"zynlog-1.txt", "zynlog-2.txt"}));
    EXPECT_EQ(listing_.Readings(), 2U);
}

TEST_F(DirectoryListingTest, ReadingThatBrokeOffLaterIsNotTakenForWhole) {
    Make("zynlog-1.txt");
    SetTime(1000);
    EXPECT_EQ(listing_.Names(), Names{"zynlog-1.txt"});
    Make("zynlog-2.txt");
    SetTime(2000);
    {
        const LibcFault fault(LibcCall::kReaddir, EIO);
        EXPECT_NE(FailureTextOf([this] { listing_.Names(); }), "");
    }
    EXPECT_FALSE(listing_.IsCurrent());
    EXPECT_EQ(listing_.Names(), (Names{"zynlog-1.txt", "zynlog-2.txt"}));
}

TEST(DirectoryListingMissingTest, DirectoryThatDoesNotExistHasNoNames) {
    const TempDirectory parent;
    DirectoryListing listing(parent / "none", "zynlog-", "txt");
    EXPECT_TRUE(listing.Names().empty());
    const std::string made = parent.MakeDirectory("none");
    WriteFile(made + "/zynlog-1.txt", "");
    EXPECT_EQ(listing.Names(), Names{"zynlog-1.txt"});
}

}  // namespace
