#include "Support/RunFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Support/ProcessState.h"
#include "Support/RuntimeInfo.h"
#include "Support/Sleep.h"

namespace {

// What is wrong with a file that has been opened, as an errno value; 0 for nothing, ESTALE when the
// name has become another file's meanwhile.
int FaultOf(const FileDescriptor& file, const std::string& path, bool onlyName) {
    struct stat opened {};
    if (::fstat(file.Get(), &opened) != 0) {
        return errno;
    }
    if (!S_ISREG(opened.st_mode)) {
        return EINVAL;
    }
    if (!onlyName) {
        return 0;
    }
    // The count of names alone does not do: whoever gave somebody's file this name could have taken
    // it away since the open. A single lstat shows both that the name is still the file's and that
    // it has no other one.
    struct stat named {};
    if (::lstat(path.c_str(), &named) != 0) {
        return errno == ENOENT ? ESTALE : errno;
    }
    if (named.st_dev != opened.st_dev || named.st_ino != opened.st_ino) {
        return ESTALE;
    }
    return named.st_nlink == 1 ? 0 : EMLINK;
}

struct OpenedFile {
    FileDescriptor file;
    bool made = false;
};

// Not open, with errno ESTALE, when the file has gone between the two opens.
OpenedFile Attempt(const std::string& path, int flags, mode_t mode) {
    constexpr int kAlways = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const bool creates = (flags & O_CREAT) != 0;
    const int existing = (flags & ~(O_CREAT | O_TRUNC)) | kAlways;
    if (creates) {
        const UmaskSection exactMode;
        FileDescriptor made(::open(path.c_str(), existing | O_CREAT | O_EXCL, mode));
        if (made.IsOpen() || errno != EEXIST) {
            return {std::move(made), true};
        }
    }
    FileDescriptor file(::open(path.c_str(), existing));
    if (!file.IsOpen() && errno == ENOENT && creates) {
        errno = ESTALE;
    }
    return {std::move(file), false};
}

}  // namespace

std::string runfile::PathOf(const std::string& name) {
    return CRuntimeInfo::FormatEnvironmentVariables(CRuntimeInfo::kRunDirectory) + name;
}

FileDescriptor runfile::Open(const std::string& path, int flags, mode_t mode) {
    for (unsigned int attempt = 0;; ++attempt) {
        auto [file, made] = Attempt(path, flags, mode);
        int fault = file.IsOpen() ? 0 : errno;
        // One that was made here has nobody's bytes.
        if (fault == 0 && !made) {
            fault = FaultOf(file, path, (flags & (O_TRUNC | O_APPEND)) != 0);
            if (fault == 0 && (flags & O_TRUNC) != 0 && ::ftruncate(file.Get(), 0) != 0) {
                fault = errno;
            }
        }
        if (fault == 0) {
            return std::move(file);
        }
        errno = fault;
        if (attempt == kMaxRetries || (fault != ESTALE && !FailedForALease(path))) {
            return {};
        }
        SleepMilliseconds(kRetryMs);
    }
}
