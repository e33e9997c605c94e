#include "zynverify/SalvageDirectory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <utility>

#include "LogReading/LogFiles.h"
#include "LogReading/LogListing.h"
#include "Support/ValidationException.h"

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

bool IsEmpty(int directory) {
    // Reading moves the position of all descriptors of an open directory, so it has one of its own.
    const int own = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ZYN_CHECK_OS_CALL(own != -1, "Can not open directory");
    const std::unique_ptr<DIR, CloseDirectory> entries(fdopendir(own));
    ZYN_CHECK_OS_CALL(entries != nullptr, "Can not open directory");
    errno = 0;
    while (const dirent* entry = readdir(entries.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            return false;
        }
        errno = 0;
    }
    ZYN_CHECK_OS_CALL(errno == 0, "Can not read directory");
    return true;
}

}  // namespace

std::string SalvagedName(std::string_view path) {
    std::string name(PlainName(path.substr(path.rfind('/') + 1)));
    if (!name.starts_with(kLogPrefix)) {
        name.insert(0, kLogPrefix);
    }
    if (name.find(kLogExtension) == std::string::npos) {
        name += kLogExtension;
    }
    return name;
}

SalvageDirectory::SalvageDirectory(std::string path) : path_(std::move(path)) {
    const int made = mkdir(path_.c_str(), 0777);
    ZYN_CHECK_OS_CALL(made == 0 || errno == EEXIST, "Can not create directory");
    directory_ = FileDescriptor(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ZYN_CHECK_OS_CALL(directory_.IsOpen(), "Can not open directory");
    const bool empty = IsEmpty(directory_.Get());
    errno = ENOTEMPTY;
    ZYN_CHECK_OS_CALL(empty, "Directory is not empty");
}

FileDescriptor SalvageDirectory::Create(const std::string& name) const {
    FileDescriptor file(openat(directory_.Get(), name.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    ZYN_CHECK_OS_CALL(file.IsOpen(), "Can not create file");
    return file;
}

void SalvageDirectory::Remove(const std::string& name) const noexcept {
    unlinkat(directory_.Get(), name.c_str(), 0);
}

SalvageFile::SalvageFile(const SalvageDirectory& directory, std::string name)
    : directory_(directory), name_(std::move(name)) {
    buffer_.reserve(kBufferBytes);
    buffer_.append(ZynBinaryFileOutputSupport::GetHeader());
    // Last: what throws behind it would leave a file that nobody removes.
    file_ = directory.Create(name_);
}

SalvageFile::~SalvageFile() {
    if (file_.IsOpen()) {
        directory_.Remove(name_);
    }
}

void SalvageFile::Write(std::span<const char> bytes) {
    if (bytes.size() > kBufferBytes - buffer_.size()) {
        Flush(buffer_);
        buffer_.clear();
        if (bytes.size() >= kBufferBytes) {
            Flush(bytes);
            return;
        }
    }
    buffer_.append(bytes.data(), bytes.size());
}

void SalvageFile::Close() {
    Flush(buffer_);
    buffer_.clear();
    // Some file systems say only now that there is no room.
    const bool closed = file_.TryClose();
    const int reason = errno;
    if (!closed) {
        directory_.Remove(name_);
    }
    errno = reason;
    ZYN_CHECK_OS_CALL(closed, "Can not write file");
}

void SalvageFile::Flush(std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file_.Get(), bytes.data(), bytes.size());
        if (written == -1 && errno == EINTR) {
            continue;
        }
        if (written == 0) {
            // Trying again would return 0 for ever.
            errno = EIO;
        }
        ZYN_CHECK_OS_CALL(written > 0, "Can not write file");
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}
