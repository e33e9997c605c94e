#include "Support/FileSystem.h"

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "Support/ValidationException.h"

namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

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
    const std::unique_ptr<DIR, DirectoryCloser> listing(opendir(Normalised(directory).c_str()));
    if (!listing) {
        return;
    }
    while (true) {
        errno = 0;
        const dirent* entry = readdir(listing.get());
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
