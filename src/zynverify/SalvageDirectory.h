// Where a salvage puts its copy: a directory that held nothing, into which only new files go.
#ifndef ZYN_ZYNVERIFY_SALVAGEDIRECTORY_H
#define ZYN_ZYNVERIFY_SALVAGEDIRECTORY_H

#include <span>
#include <string>
#include <string_view>

#include "Support/FileDescriptor.h"

// The name that the copy of a log file gets, so that an export finds it: that of the file itself,
// without what a compression put behind it.
[[nodiscard]] std::string SalvagedName(std::string_view path);

// One thread.
class SalvageDirectory {
  public:
    // Makes the directory, or takes one that is empty. Throws CheckOSCall "Can not create
    // directory", "Can not open directory" and, for one that holds anything, "Directory is not
    // empty".
    explicit SalvageDirectory(std::string path);

    // A new file in it. Throws CheckOSCall "Can not create file", also when there is one.
    [[nodiscard]] FileDescriptor Create(const std::string& name) const;
    void Remove(const std::string& name) const noexcept;

    [[nodiscard]] const std::string& Path() const noexcept { return path_; }

  private:
    std::string path_;
    FileDescriptor directory_;
};

// A file of the copy, written in large pieces. Nothing is complete before Close.
class SalvageFile {
  public:
    // Begins with the header of a log file. Throws what Create does.
    SalvageFile(const SalvageDirectory& directory, std::string name);
    SalvageFile(const SalvageFile&) = delete;
    SalvageFile& operator=(const SalvageFile&) = delete;
    // Removes a file that has not been closed.
    ~SalvageFile();

    // Throws CheckOSCall "Can not write file".
    void Write(std::span<const char> bytes);
    // Throws CheckOSCall "Can not write file".
    void Close();

  private:
    void Flush(std::span<const char> bytes);

    const SalvageDirectory& directory_;
    std::string name_;
    FileDescriptor file_;
    std::string buffer_;
};

#endif
