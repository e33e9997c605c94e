#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "Support/SharedMemory.h"
#include "Support/ValidationException.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

std::string OpenFailure() {
    return FailureTextOf([] { const SharedMemory region("Region"); });
}

std::string CreateFailure(int size = 100) {
    return FailureTextOf([size] { const SharedMemory region("Region", size); });
}

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

TEST(SharedMemory, CreatedRegionIsZeroAndAsLongAsRequested) {
    const RunDirectory run;
    const SharedMemory region("Region", 524);
    EXPECT_EQ(region.Size(), 524U);
    EXPECT_EQ(ReadFile(run / "Region.map"), std::string(524, '\0'));
    EXPECT_EQ(std::string(region.Address(), 524), std::string(524, '\0'));
}

TEST(SharedMemory, OpenerTakesTheSizeFromTheFileAndSharesItsBytes) {
    const RunDirectory run;
    const SharedMemory creator("Region", 100);
    const SharedMemory opener("Region");
    EXPECT_EQ(opener.Size(), 100U);
    std::memcpy(creator.Address() + 96, "abcd", 4);
    EXPECT_EQ(std::string(opener.Address() + 96, 4), "abcd");
    std::memcpy(opener.Address(), "wxyz", 4);
    EXPECT_EQ(ReadFile(run / "Region.map").substr(0, 4), "wxyz");
}

TEST(SharedMemory, DestroyingTheCreatorRemovesTheFile) {
    const RunDirectory run;
    { const SharedMemory region("Region", 10); }
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SharedMemory, DestroyingAnOpenerLeavesTheFile) {
    const RunDirectory run;
    WriteFile(run / "Region.map", "12345");
    { const SharedMemory region("Region"); }
    EXPECT_EQ(ReadFile(run / "Region.map"), "12345");
}

TEST(SharedMemory, CreatingTwiceResizesTheOneFileAndTheSecondMappingOutlivesTheFirstOwner) {
    const RunDirectory run;
    auto first = std::make_unique<SharedMemory>("Region", 10);
    std::memcpy(first->Address(), "abc", 3);
    const SharedMemory second("Region", 20);
    EXPECT_EQ(ReadFile(run / "Region.map"), std::string(20, '\0'));
    first.reset();
    EXPECT_THAT(run.Files(), IsEmpty());
    std::memcpy(second.Address(), "still", 5);
    EXPECT_EQ(std::string(second.Address(), 5), "still");
}

TEST(SharedMemory, FileGetsTheReadAndWriteBitsOfTheProductDirectoryWhateverTheUmask) {
    const RunDirectory run;
    ASSERT_EQ(::chmod(run.ProductPath().c_str(), 0750), 0);
    const mode_t before = ::umask(077);
    const SharedMemory region("Region", 10);
    EXPECT_EQ(::umask(before), 077U);
    EXPECT_EQ(ModeOf(run / "Region.map"), 0640U);
}

TEST(SharedMemory, OpeningAMissingRegionIsReported) {
    const RunDirectory run;
    EXPECT_EQ(OpenFailure(), "Can not open file [OS call failed:2(No such file or directory)]");
}

TEST(SharedMemory, OpeningADirectoryIsReported) {
    const RunDirectory run;
    std::filesystem::create_directory(run / "Region.map");
    EXPECT_EQ(OpenFailure(), "Can not open file [OS call failed:21(Is a directory)]");
}

TEST(SharedMemory, OpeningAFifoIsRefused) {
    const RunDirectory run;
    ASSERT_EQ(::mkfifo((run / "Region.map").c_str(), 0666), 0);
    EXPECT_EQ(OpenFailure(), "Can not open file [OS call failed:22(Invalid argument)]");
}

TEST(SharedMemory, OpeningAnEmptyFileIsReported) {
    const RunDirectory run;
    WriteFile(run / "Region.map", "");
    EXPECT_EQ(OpenFailure(), "Can not open file mapping [OS call failed:22(Invalid argument)]");
}

TEST(SharedMemory, OpeningAFileOf4GiBSaysThatItIsTooLarge) {
    const RunDirectory run;
    WriteFile(run / "Region.map", "");
    std::filesystem::resize_file(run / "Region.map", std::uintmax_t{1} << 32U);
    EXPECT_EQ(OpenFailure(), "Can not open file mapping [OS call failed:27(File too large)]");
}

TEST(SharedMemory, OpenerMappingFailureIsReportedAndClosesTheFile) {
    const RunDirectory run;
    WriteFile(run / "Region.map", "1234");
    const LibcFault fault(LibcCall::kMmap, ENOMEM);
    EXPECT_EQ(OpenFailure(),
              "Can not open file mapping [OS call failed:12(Cannot allocate memory)]");
}

TEST(SharedMemory, OpenerSeekFailureIsReported) {
    const RunDirectory run;
    WriteFile(run / "Region.map", "1234");
    const LibcFault fault(LibcCall::kLseek, EOVERFLOW);
    EXPECT_EQ(OpenFailure(),
              "Can not seek to the end of file [OS call failed:75(Value too large "
              "for defined data type)]");
}

TEST(SharedMemory, FailureToCloseAfterAFailureIsTheTracesAlone) {
    const RunDirectory run(true);
    WriteFile(run / "Region.map", "");
    // The first close is that of the trace line for the mapping's failure.
    const LibcFault fault(LibcCall::kClose, EIO, 2);
    EXPECT_EQ(OpenFailure(), "Can not open file mapping [OS call failed:22(Invalid argument)]");
    EXPECT_THAT(
        run.Trace(),
        ElementsAre(EndsWith("-Can not open file mapping [OS call failed:22(Invalid "
                             "argument)]"),
                    EndsWith("-Can not close file [OS call failed:5(Input/output error)]")));
}

TEST(SharedMemory, CreatingWithoutTheRunDirectoryIsReported) {
    const EnvironmentVariable product("KORVA_VANTOREL_DIR", "/nonexistent");
    EXPECT_EQ(CreateFailure(),
              "Can not create for shared memory [OS call failed:2(No such file or directory)]");
}

TEST(SharedMemory, CreatingWithANegativeSizeIsReportedAndLeavesNoFile) {
    const RunDirectory run;
    EXPECT_EQ(CreateFailure(-1), "Can not adjust file size [OS call failed:22(Invalid argument)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SharedMemory, FailureToEmptyIsTheFailureToCreateAndLeavesTheFile) {
    const RunDirectory run;
    WriteFile(run / "Region.map", "1234");
    const LibcFault fault(LibcCall::kFtruncate, EPERM);
    EXPECT_EQ(CreateFailure(),
              "Can not create for shared memory [OS call failed:1(Operation not permitted)]");
    EXPECT_EQ(ReadFile(run / "Region.map"), "1234");
}

TEST(SharedMemory, CreatingOverALinkOrASecondNameIsReportedAndLeavesTheFile) {
    const RunDirectory run;
    WriteFile(run / "victim", "1234");
    ASSERT_EQ(::symlink("victim", (run / "Region.map").c_str()), 0);
    EXPECT_EQ(
        CreateFailure(),
        "Can not create for shared memory [OS call failed:40(Too many levels of symbolic links)]");
    std::filesystem::remove(run / "Region.map");
    ASSERT_EQ(::link((run / "victim").c_str(), (run / "Region.map").c_str()), 0);
    EXPECT_EQ(CreateFailure(),
              "Can not create for shared memory [OS call failed:31(Too many links)]");
    EXPECT_EQ(ReadFile(run / "Region.map"), "1234");
}

TEST(SharedMemory, OpeningALinkIsReported) {
    const RunDirectory run;
    WriteFile(run / "victim", "1234");
    ASSERT_EQ(::symlink("victim", (run / "Region.map").c_str()), 0);
    EXPECT_EQ(OpenFailure(),
              "Can not open file [OS call failed:40(Too many levels of symbolic links)]");
}

TEST(SharedMemory, RoomIsClaimedForTheTouchedBytesOnly) {
    const RunDirectory run;
    const auto blocksOf = [&run](int touchedBytes) {
        const SharedMemory region("Region", 1 << 20, touchedBytes);
        EXPECT_EQ(region.Size(), 1U << 20U);
        struct stat status {};
        EXPECT_EQ(::stat((run / "Region.map").c_str(), &status), 0);
        EXPECT_EQ(status.st_size, 1 << 20);
        return status.st_blocks * 512;
    };
    const auto some = blocksOf(12);
    EXPECT_GE(some, 512);
    EXPECT_LE(some, 1 << 16);
    EXPECT_GE(blocksOf(1 << 20), 1 << 20);
}

TEST(SharedMemory, FailureToResizeIsReportedAndLeavesNoFile) {
    const RunDirectory run;
    const LibcFault fault(LibcCall::kFtruncate, EFBIG);
    EXPECT_EQ(CreateFailure(), "Can not adjust file size [OS call failed:27(File too large)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SharedMemory, FullDiskIsFoundBeforeAPageIsTouched) {
    const RunDirectory run;
    const LibcFault fault(LibcCall::kFallocate, ENOSPC);
    EXPECT_EQ(CreateFailure(),
              "Can not adjust file size [OS call failed:28(No space left on device)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SharedMemory, ExceededQuotaIsFoundBeforeAPageIsTouched) {
    const RunDirectory run;
    const LibcFault fault(LibcCall::kFallocate, EDQUOT);
    EXPECT_EQ(CreateFailure(),
              "Can not adjust file size [OS call failed:122(Disk quota exceeded)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SharedMemory, InterruptedClaimIsMadeAgain) {
    const RunDirectory run;
    const LibcFault interruption(LibcCall::kFallocate, EINTR);
    const SharedMemory region("Region", 10);
    EXPECT_TRUE(interruption.Happened());
    EXPECT_TRUE(region.IsBacked());
}

TEST(SharedMemory, WithoutTheProductDirectoryRegionsAreSoughtInTheRootsTemp) {
    const RunDirectory run;
    const EnvironmentVariable product("KORVA_VANTOREL_DIR", std::nullopt);
    EXPECT_EQ(FailureTextOf([] { const SharedMemory region("ZynNoSuchRegion"); }),
              "Can not open file [OS call failed:2(No such file or directory)]");
}

TEST(SharedMemory, FileSystemThatCannotClaimRoomIsNoFailure) {
    const RunDirectory run;
    const LibcFault fault(LibcCall::kFallocate, EOPNOTSUPP);
    EXPECT_EQ(CreateFailure(), kNoFailure);
    EXPECT_TRUE(fault.Happened());
}

TEST(SharedMemory, FailureToMapIsReportedAndLeavesNoFile) {
    const RunDirectory run;
    const LibcFault fault(LibcCall::kMmap, ENOMEM);
    EXPECT_EQ(CreateFailure(), "Can not map memory [OS call failed:12(Cannot allocate memory)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SharedMemory, CreatingARegionOfNoBytesIsReported) {
    const RunDirectory run;
    EXPECT_EQ(CreateFailure(0), "Can not map memory [OS call failed:22(Invalid argument)]");
    EXPECT_THAT(run.Files(), IsEmpty());
}

TEST(SharedMemory, DestructorDropsItsFailuresAndTracesThem) {
    const RunDirectory run(true);
    {
        const SharedMemory region("Region", 10);
        std::filesystem::remove(run / "Region.map");
    }
    EXPECT_THAT(run.Trace(), ElementsAre(EndsWith("-can not remove file [OS call failed:2(No such "
                                                  "file or directory)]")));
}

TEST(SharedMemory, EveryStepOfTheDestructorIsTriedAndItsFailureDropped) {
    const RunDirectory run(true);
    auto region = std::make_unique<SharedMemory>("Region", 10);
    const LibcFault unmap(LibcCall::kMunmap, EINVAL);
    // The first close is that of the trace line for the unmapping.
    const LibcFault close(LibcCall::kClose, EIO, 2);
    const LibcFault unlink(LibcCall::kUnlink, EACCES);
    region.reset();
    EXPECT_THAT(
        run.Trace(),
        ElementsAre(EndsWith("-Can not unmap memory [OS call failed:22(Invalid argument)]"),
                    EndsWith("-Can not close file [OS call failed:5(Input/output error)]"),
                    EndsWith("-can not remove file [OS call failed:13(Permission denied)]")));
}

TEST(SharedMemory, RegionSmallerThanItsUseNeedsIsRefusedLikeAnEmptyOne) {
    const RunDirectory run;
    const SharedMemory region("Region", 10);
    region.Require(10);
    EXPECT_EQ(FailureTextOf([&] { region.Require(11); }),
              "Can not open file mapping [OS call failed:22(Invalid argument)]");
}

TEST(SharedMemory, KnowsWhenItsFileWasShortened) {
    const RunDirectory run;
    const SharedMemory region("Region", 10);
    EXPECT_TRUE(region.IsBacked());
    std::filesystem::resize_file(run / "Region.map", 9);
    EXPECT_FALSE(region.IsBacked());
    std::filesystem::resize_file(run / "Region.map", 10);
    EXPECT_TRUE(region.IsBacked());
    const LibcFault fault(LibcCall::kFstat, EIO);
    EXPECT_FALSE(region.IsBacked()) << "who cannot know must not touch it";
}

}  // namespace
