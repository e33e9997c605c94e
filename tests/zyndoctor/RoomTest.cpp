#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "zyndoctor/Room.h"

namespace {

Remark RoomOf(const std::string& directory, std::uint64_t needed) {
    Diagnosis diagnosis;
    diagnosis.Begin("Room");
    CheckRoom(diagnosis, directory, needed, "a house");
    EXPECT_EQ(diagnosis.Sections().front().remarks.size(), 1U);
    return diagnosis.Sections().front().remarks.front();
}

TEST(RoomTest, EnoughIsAFact) {
    const Remark remark = RoomOf("/tmp", 1);
    EXPECT_EQ(remark.kind, RemarkKind::kFact);
    EXPECT_THAT(remark.text, testing::ContainsRegex("^room left: [0-9]+ of [0-9]+ MiB$"));
}

TEST(RoomTest, TooLittleIsAFinding) {
    const Remark remark = RoomOf("/tmp", std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(remark.kind, RemarkKind::kFinding);
    EXPECT_EQ(remark.code, "no-room");
    EXPECT_THAT(remark.text,
                testing::EndsWith("too little for a house (18446744073709551615 bytes)"));
}

TEST(RoomTest, WhatTheSystemDoesNotSayIsUnknown) {
    const Remark remark = RoomOf("/proc/none", 1);
    EXPECT_EQ(remark.kind, RemarkKind::kUnknown);
    EXPECT_EQ(remark.text, "/proc/none: room left: No such file or directory");
}

Remark Judged(const struct statvfs& status) {
    Diagnosis diagnosis;
    diagnosis.Begin("Room");
    JudgeRoom(diagnosis, "/logs", status, 4096, "a house");
    return diagnosis.Sections().front().remarks.front();
}

// A file system of 1 GiB, with a quarter of it left.
struct statvfs Roomy() {
    struct statvfs status {};
    status.f_frsize = 1024;
    status.f_blocks = 1024 * 1024;
    status.f_bavail = 256 * 1024;
    status.f_files = 1000;
    status.f_favail = 1;
    return status;
}

TEST(RoomTest, RoomIsCountedInWholeMiB) {
    EXPECT_EQ(Judged(Roomy()).text, "room left: 256 of 1024 MiB");
}

TEST(RoomTest, LargeFileSystemsAreCounted) {
    struct statvfs status = Roomy();
    status.f_frsize = 1024 * 1024;
    status.f_blocks = std::uint64_t{1} << 40;
    status.f_bavail = std::uint64_t{1} << 39;
    EXPECT_EQ(Judged(status).text, "room left: 549755813888 of 1099511627776 MiB");
}

TEST(RoomTest, TheLastByteNeededIsEnough) {
    struct statvfs status = Roomy();
    status.f_bavail = 4;
    EXPECT_EQ(Judged(status).kind, RemarkKind::kFact);
    status.f_bavail = 3;
    EXPECT_EQ(Judged(status).text, "room left: 3072 bytes, too little for a house (4096 bytes)");
}

TEST(RoomTest, NoRoomForAFileIsAFinding) {
    struct statvfs status = Roomy();
    status.f_favail = 0;
    EXPECT_EQ(Judged(status).code, "no-room");
    EXPECT_EQ(Judged(status).text, "room left: for no more files, whatever their size");
}

TEST(RoomTest, AFileSystemThatCountsNoFilesHasRoom) {
    struct statvfs status = Roomy();
    status.f_files = status.f_favail = 0;
    EXPECT_EQ(Judged(status).kind, RemarkKind::kFact);
}

TEST(RoomTest, AReadOnlyFileSystemIsAFinding) {
    struct statvfs status = Roomy();
    status.f_flag = ST_RDONLY;
    EXPECT_EQ(Judged(status).code, "read-only");
    EXPECT_EQ(Judged(status).text, "/logs: the file system is read-only");
}

}  // namespace
