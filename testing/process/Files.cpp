// Private directories and whole-file access (see Files.h).

#include "testing/process/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::unique_ptr<std::FILE, CloseFile> Open(const std::string& path, const char* mode) {
    std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), mode));
    if (!file) {
        Fail("cannot open " + path);
    }
    return file;
}

}  // namespace

TempDirectory::TempDirectory()
    : path_((std::filesystem::temp_directory_path() / "zyn-test-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        Fail("cannot make " + path_);
    }
}

TempDirectory::~TempDirectory() {
    // A destructor cannot report, and a test that took away its own permissions is to blame itself.
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDirectory::operator/(std::string_view name) const {
    return path_ + "/" + std::string(name);
}

std::string TempDirectory::MakeDirectory(std::string_view name) const {
    std::string path = *this / name;
    std::filesystem::create_directories(path);
    return path;
}

void WriteFile(const std::string& path, std::string_view content) {
    std::unique_ptr<std::FILE, CloseFile> file = Open(path, "wb");
    if (std::fwrite(content.data(), 1, content.size(), file.get()) != content.size() ||
        std::fclose(file.release()) != 0) {
        Fail("cannot write " + path);
    }
}

std::string ReadFile(const std::string& path) {
    const std::unique_ptr<std::FILE, CloseFile> file = Open(path, "rb");
    std::string content;
    char buffer[65536];
    std::size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
        content.append(buffer, got);
    }
    if (std::ferror(file.get()) != 0) {
        Fail("cannot read " + path);
    }
    return content;
}

std::vector<std::string> ListDirectory(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::map<std::string, std::string> ReadDirectory(const std::string& path) {
    std::map<std::string, std::string> contents;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        contents[entry.path().filename().string()] = ReadFile(entry.path().string());
    }
    return contents;
}
