#ifndef ZYN_TESTING_PROCESS_FILES_H
#define ZYN_TESTING_PROCESS_FILES_H

// Private directories and whole-file access for tests. Every failure throws std::system_error or
// std::filesystem::filesystem_error, which a test reports with the path.

#include <map>
#include <string>
#include <string_view>
#include <vector>

// A new empty directory under TMPDIR (else the system's directory for temporary files), removed
// with all that is in it at the end of the scope.
class TempDirectory {
  public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    [[nodiscard]] const std::string& Path() const { return path_; }

    // The path of an entry, which need not exist.
    [[nodiscard]] std::string operator/(std::string_view name) const;

    // Makes a directory below, parents too; returns its path.
    [[nodiscard]] std::string MakeDirectory(std::string_view name) const;

  private:
    std::string path_;
};

void WriteFile(const std::string& path, std::string_view content);
[[nodiscard]] std::string ReadFile(const std::string& path);

// Names of the entries, bytewise ascending.
[[nodiscard]] std::vector<std::string> ListDirectory(const std::string& path);

// Contents of the entries by name; all of them must be files.
[[nodiscard]] std::map<std::string, std::string> ReadDirectory(const std::string& path);

#endif
