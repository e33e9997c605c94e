#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "Support/FileSystem.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/process/Files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class FileSystemTest : public testing::Test {
  protected:
    std::vector<std::string> Find(const std::string& directory, const std::string& prefix,
                                  const std::string& part) {
        std::vector<std::string> names;
        CFileSystem::FindAllFiles(directory, prefix, part, names);
        return names;
    }
    void Touch(const std::string& name) { WriteFile(directory_ / name, ""); }

    TempDirectory directory_;
};

TEST_F(FileSystemTest, NamesMustBeginWithThePrefixAndContainThePart) {
    for (const char* name : {"zynlog-1.txt", "zynlog-1.txt.old", "zynlog-txt", "zynlog-1.log",
                             "xzynlog-1.txt", "Zynlog-1.txt", "zynlog", "txt"}) {
        Touch(name);
    }
    EXPECT_THAT(Find(directory_.Path(), "zynlog-", "txt"),
                UnorderedElementsAre("zynlog-1.txt", "zynlog-1.txt.old", "zynlog-txt"));
    EXPECT_THAT(Find(directory_.Path(), "zynlog-", ".txt"),
                UnorderedElementsAre("zynlog-1.txt", "zynlog-1.txt.old"));
}

TEST_F(FileSystemTest, PartMayLieWithinThePrefix) {
    Touch("abc");
    EXPECT_THAT(Find(directory_.Path(), "ab", "a"), ElementsAre("abc"));
    EXPECT_THAT(Find(directory_.Path(), "abc", "abc"), ElementsAre("abc"));
    EXPECT_THAT(Find(directory_.Path(), "abcd", ""), IsEmpty());
}

TEST_F(FileSystemTest, NamesAreAppended) {
    Touch("new");
    std::vector<std::string> names{"old"};
    CFileSystem::FindAllFiles(directory_.Path(), "new", "", names);
    EXPECT_THAT(names, ElementsAre("old", "new"));
}

TEST_F(FileSystemTest, WhatAnEntryIsDoesNotMatter) {
    static_cast<void>(directory_.MakeDirectory("z-directory"));
    ASSERT_EQ(mkfifo((directory_ / "z-pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("nowhere", (directory_ / "z-link").c_str()), 0);
    EXPECT_THAT(Find(directory_.Path(), "z-", ""),
                UnorderedElementsAre("z-directory", "z-pipe", "z-link"));
}

TEST_F(FileSystemTest, DirectoryMayEndInASlashOrABackslash) {
    Touch("a");
    EXPECT_THAT(Find(directory_.Path() + "/", "a", ""), ElementsAre("a"));
    EXPECT_THAT(Find(directory_.Path() + "\\", "a", ""), ElementsAre("a"));
    EXPECT_THAT(Find(directory_.Path() + "\\\\", "a", ""), IsEmpty()) << "only one is removed";
}

TEST_F(FileSystemTest, DirectoryThatCannotBeOpenedAddsNothing) {
    Touch("file");
    EXPECT_THAT(Find(directory_ / "none", "", ""), IsEmpty());
    EXPECT_THAT(Find(directory_ / "file", "", ""), IsEmpty());
    const LibcFault fault(LibcCall::kOpendir, EMFILE);
    EXPECT_THAT(Find(directory_.Path(), "file", ""), IsEmpty());
}

TEST_F(FileSystemTest, EmptyDirectoryNameIsTheRoot) {
    EXPECT_THAT(Find("", "dev", ""), testing::Contains("dev"));
}

TEST_F(FileSystemTest, ListingThatBreaksOffFails) {
    Touch("a");
    const LibcFault fault(LibcCall::kReaddir, EIO, 2);
    EXPECT_EQ(FailureOf([this] { Find(directory_.Path(), "a", ""); }).text,
              "Can not read directory [OS call failed:5(Input/output error)]");
}

TEST_F(FileSystemTest, NamesOf255BytesAreFound) {
    const std::string name(255, 'n');
    Touch(name);
    EXPECT_THAT(Find(directory_.Path(), "n", "n"), ElementsAre(name));
}

TEST_F(FileSystemTest, OpenedDirectoryIsTheSameUnderAnotherName) {
    static_cast<void>(directory_.MakeDirectory("log"));
    Touch("log/a1");
    OpenedDirectory opened(directory_ / "log");
    std::filesystem::rename(directory_ / "log", directory_ / "moved");
    static_cast<void>(directory_.MakeDirectory("log"));
    Touch("log/a1");
    Touch("log/a2");
    std::vector<std::string> names;
    opened.FindAllFiles("a", "", names);
    EXPECT_THAT(names, ElementsAre("a1"));
    EXPECT_TRUE(opened.Remove("a1"));
    EXPECT_FALSE(opened.Remove("a1"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(ListDirectory(directory_ / "moved"), IsEmpty());
    EXPECT_THAT(ListDirectory(directory_ / "log"), UnorderedElementsAre("a1", "a2"));
}

TEST_F(FileSystemTest, OpenedDirectoryRemovesNoDirectory) {
    static_cast<void>(directory_.MakeDirectory("inner"));
    OpenedDirectory opened(directory_.Path());
    EXPECT_FALSE(opened.Remove("inner"));
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(FileSystemTest, OpenedDirectoryThatDoesNotExistHasNoEntries) {
    OpenedDirectory opened(directory_ / "none");
    std::vector<std::string> names;
    opened.FindAllFiles("", "", names);
    EXPECT_THAT(names, IsEmpty());
}

}  // namespace
