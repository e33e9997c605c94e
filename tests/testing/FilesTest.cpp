// Tests of the private directories and whole-file access.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"

TEST(TempDirectoryTest, IsEmptyAndGoneAfterItsScope) {
    std::string path;
    {
        const TempDirectory directory;
        path = directory.Path();
        EXPECT_TRUE(ListDirectory(path).empty());
        WriteFile(directory.MakeDirectory("a/b") + "/file", "x");
        EXPECT_EQ(ReadFile(directory / "a/b/file"), "x");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TempDirectoryTest, TwoAreDifferent) {
    const TempDirectory first;
    const TempDirectory second;
    EXPECT_NE(first.Path(), second.Path());
}

TEST(TempDirectoryTest, LiesUnderTmpdir) {
    const TempDirectory outer;
    const EnvironmentVariable variable("TMPDIR", outer.Path());
    const TempDirectory inner;
    EXPECT_EQ(std::filesystem::path(inner.Path()).parent_path(), outer.Path());
}

TEST(FilesTest, KeepsEveryByte) {
    const TempDirectory directory;
    std::string content(70000, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(i % 256);
    }
    WriteFile(directory / "file", content);
    EXPECT_EQ(ReadFile(directory / "file"), content);
    WriteFile(directory / "file", "short");
    EXPECT_EQ(ReadFile(directory / "file"), "short");
}

TEST(FilesTest, MissingOrUnwritableFileThrows) {
    const TempDirectory directory;
    EXPECT_THROW(static_cast<void>(ReadFile(directory / "none")), std::system_error);
    EXPECT_THROW(WriteFile(directory / "none/file", ""), std::system_error);
    EXPECT_THROW(WriteFile("/dev/full", "x"), std::system_error);
}

TEST(FilesTest, ListsNamesBytewise) {
    const TempDirectory directory;
    for (const char* name : {"b", "a10", "a2", "B"}) {
        WriteFile(directory / name, "");
    }
    EXPECT_EQ(ListDirectory(directory.Path()), (std::vector<std::string>{"B", "a10", "a2", "b"}));
}

TEST(FilesTest, ReadsAWholeDirectory) {
    const TempDirectory directory;
    EXPECT_TRUE(ReadDirectory(directory.Path()).empty());
    WriteFile(directory / "a", "1");
    WriteFile(directory / "b", "");
    EXPECT_EQ(ReadDirectory(directory.Path()),
              (std::map<std::string, std::string>{{"a", "1"}, {"b", ""}}));
}
