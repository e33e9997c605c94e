#include "Support/FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "Support/ValidationException.h"

namespace {

std::string Normalised(std::string directory) {
    if (directory.empty() || directory.back() != '/') {
        if (!directory.empty() && directory.back() == '\\') {
            directory.pop_back();
        }
        directory += '/';
    }
    return directory;
}

}  // namespace

void CFileSystem::FindAllFiles(const std::string& directory, const std::string& prefix,
                               const std::string& part, std::vector<std::string>& names) {
    OpenedDirectory(directory).FindAllFiles(prefix, part, names);
}

OpenedDirectory::OpenedDirectory(const std::string& directory)
    : directory_(opendir(Normalised(directory).c_str())) {}

void OpenedDirectory::FindAllFiles(const std::string& prefix, const std::string& part,
                                   std::vector<std::string>& names) {
    if (!directory_) {
        return;
    }
    while (true) {
        errno = 0;
        const dirent* entry = readdir(directory_.get());
        if (entry == nullptr) {
            ZYN_CHECK_OS_CALL(errno == 0, "Can not read directory");
            return;
        }
        const std::string_view name = entry->d_name;
        if (name.starts_with(prefix) && name.find(part) != std::string_view::npos) {
            names.emplace_back(name);
        }
    }
}

bool OpenedDirectory::Remove(const std::string& name) noexcept {
    return unlinkat(dirfd(directory_.get()), name.c_str(), 0) == 0;
}

DirectoryListing::DirectoryListing(std::string directory, std::string prefix, std::string part)
    : directory_(std::move(directory)), prefix_(std::move(prefix)), part_(std::move(part)) {}

namespace {

bool IsSameTime(const timespec& one, const timespec& other) noexcept {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

// Looked at before the directory is read: a change during the reading shows the next time.
bool DirectoryListing::HasChanged() {
    struct stat status {};
    if (stat(Normalised(directory_).c_str(), &status) != 0) {
        return true;
    }
    const bool same = IsSameTime(status.st_mtim, changed_);
    changed_ = status.st_mtim;
    return !same;
}

bool DirectoryListing::IsCurrent() const {
    struct stat status {};
    return listed_ && stat(Normalised(directory_).c_str(), &status) == 0 &&
           IsSameTime(status.st_mtim, changed_);
}

const std::vector<std::string>& DirectoryListing::Names() {
    if (HasChanged() || !listed_) {
        listed_ = false;
        names_.clear();
        CFileSystem::FindAllFiles(directory_, prefix_, part_, names_);
        std::sort(names_.begin(), names_.end());
        listed_ = true;
        ++readings_;
    }
    return names_;
}

std::span<const std::string> DirectoryListing::NamesWithPrefix(const std::string& prefix) {
    const std::vector<std::string>& names = Names();
    const auto begin = std::lower_bound(names.begin(), names.end(), prefix);
    const auto end = std::find_if_not(begin, names.end(), [&prefix](const std::string& name) {
        return name.starts_with(prefix);
    });
    return {begin, end};
}
