// Programs that are built with _FORTIFY_SOURCE call other entry points of the C library where the
// compiler knows a buffer's size; faults must reach those as well. This file is built so.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>

#include "testing/faults/LibcFaults.h"
#include "testing/process/Files.h"

namespace {

// Unknown to the compiler.
[[gnu::noipa]] std::size_t Unknown(std::size_t number) { return number; }

class FortifiedCalls : public testing::Test {
  protected:
    FortifiedCalls() { WriteFile(path_, "12345678"); }

    const TempDirectory directory_;
    const std::string path_ = directory_ / "file";
};

TEST_F(FortifiedCalls, Open) {
    const LibcFault fault(LibcCall::kOpen, EMFILE);
    const int flags = static_cast<int>(Unknown(O_RDONLY));
    EXPECT_EQ(open(path_.c_str(), flags), -1);
    EXPECT_EQ(errno, EMFILE);
    const int file = open(path_.c_str(), flags);
    EXPECT_NE(file, -1) << "the second call is made";
    close(file);
}

TEST_F(FortifiedCalls, Read) {
    const int file = open(path_.c_str(), O_RDONLY);
    std::array<char, 8> bytes{};
    {
        const LibcFault fault(LibcCall::kRead, EIO);
        EXPECT_EQ(read(file, bytes.data(), Unknown(bytes.size())), -1);
        EXPECT_EQ(errno, EIO);
    }
    {
        const LibcFault fault(LibcCall::kRead, LibcFault::kHalfCount);
        EXPECT_EQ(read(file, bytes.data(), Unknown(bytes.size())), 4);
    }
    EXPECT_EQ(read(file, bytes.data(), Unknown(bytes.size())), 4) << "the rest";
    close(file);
}

TEST_F(FortifiedCalls, PositionedRead) {
    const int file = open(path_.c_str(), O_RDONLY);
    std::array<char, 8> bytes{};
    {
        const LibcFault fault(LibcCall::kPread, EIO);
        EXPECT_EQ(pread(file, bytes.data(), Unknown(bytes.size()), 0), -1);
        EXPECT_EQ(errno, EIO);
    }
    {
        const LibcFault fault(LibcCall::kPread, LibcFault::kHalfCount);
        EXPECT_EQ(pread(file, bytes.data(), Unknown(bytes.size()), 0), 4);
    }
    EXPECT_EQ(pread(file, bytes.data(), Unknown(bytes.size()), 2), 6) << "made";
    close(file);
}

TEST_F(FortifiedCalls, OpenInADirectory) {
    const int flags = static_cast<int>(Unknown(O_RDONLY));
    {
        const LibcFault fault(LibcCall::kOpenat, EMFILE);
        EXPECT_EQ(openat(AT_FDCWD, path_.c_str(), flags), -1);
        EXPECT_EQ(errno, EMFILE);
    }
    const int file = openat(AT_FDCWD, path_.c_str(), flags);
    EXPECT_NE(file, -1);
    close(file);
}

TEST_F(FortifiedCalls, Gethostname) {
    std::array<char, 300> name{};
    {
        const LibcFault fault(LibcCall::kGethostname, ENAMETOOLONG);
        EXPECT_EQ(gethostname(name.data(), Unknown(name.size())), -1);
        EXPECT_EQ(errno, ENAMETOOLONG);
    }
    EXPECT_EQ(gethostname(name.data(), Unknown(name.size())), 0);
}

TEST_F(FortifiedCalls, FprintfIsAWriteOfAStream) {
    FILE* const file = std::fopen(path_.c_str(), "w");
    ASSERT_NE(file, nullptr);
    const int number = static_cast<int>(Unknown(5));
    {
        const LibcFault fault(LibcCall::kFwrite, ENOSPC);
        EXPECT_EQ(std::fprintf(file, "%d", number), -1);
        EXPECT_EQ(errno, ENOSPC);
    }
    EXPECT_EQ(std::fprintf(file, "%d", number), 1);
    EXPECT_EQ(std::fclose(file), 0);
    EXPECT_EQ(ReadFile(path_), "5");
}

}  // namespace
