// The log directory: which files an export reads, what would stop it, and how the newest ends.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "LogReading/LogFiles.h"
#include "Support/RuntimeInfo.h"
#include "zyndoctor/Checks.h"
#include "zyndoctor/LogEnd.h"
#include "zyndoctor/Room.h"

namespace {

struct LogFiles {
    std::vector<std::string> binary;  // paths, in reading order
    std::uint64_t bytes = 0;
    std::uint64_t largest = 0;
    std::size_t foreign = 0;
    std::size_t newest = 0;  // of binary
    timespec changed{};      // the newest one's time
};

bool IsLater(const timespec& left, const timespec& right) {
    return left.tv_sec != right.tv_sec ? left.tv_sec > right.tv_sec : left.tv_nsec >= right.tv_nsec;
}

void LookAt(Diagnosis& diagnosis, const std::string& directory, const std::string& name,
            LogFiles& files) {
    const std::string path = directory + '/' + name;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        diagnosis.Find("log-unreadable", name + ": " + std::strerror(errno) + "; stops an export");
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        diagnosis.Find("log-not-regular", name + ": not a regular file; stops an export");
        return;
    }
    try {
        if (!LogStream::FileToBeRead(path).HasHeader()) {
            ++files.foreign;
            return;
        }
    } catch (const std::logic_error&) {
        diagnosis.Find("log-too-small", name + ": " + std::to_string(status.st_size) +
                                            " bytes, too small; stops an export");
        return;
    } catch (const std::exception& failure) {
        diagnosis.Find("log-unreadable", name + ": " + failure.what() + "; stops an export");
        return;
    }
    if (files.binary.empty() || IsLater(status.st_mtim, files.changed)) {
        files.newest = files.binary.size();
        files.changed = status.st_mtim;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    files.binary.push_back(path);
    files.bytes += size;
    files.largest = std::max(files.largest, size);
}

std::string BaseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

void CheckNewest(Diagnosis& diagnosis, const std::string& directory, const LogFiles& files,
                 std::optional<unsigned int> service) {
    const std::string& path = files.binary[files.newest];
    const LogEnd end = FindLogEnd(std::span(files.binary).first(files.newest + 1));
    const std::string newest = "newest: " + BaseName(path);
    const std::string at = " at offset " + std::to_string(end.offset) +
                           (end.file == path ? "" : " of " + BaseName(end.file));
    const std::string verify = "; \"zynlog-verify " + directory + "\" says what it costs";
    const std::string rescue = verify + ", with --salvage NEW_DIRECTORY it copies what is good";
    switch (end.kind) {
        case LogEnd::Kind::kComplete:
            diagnosis.Say("newest-complete", newest + ", ends with a whole block");
            break;
        case LogEnd::Kind::kUnfinished:
            if (service) {
                diagnosis.Say("newest-unfinished", newest + ", its last block" + at +
                                                       " is not finished: the service "
                                                       "is writing it");
            } else {
                diagnosis.Find("newest-unfinished",
                               newest + ", ends within the block" + at + rescue);
            }
            break;
        case LogEnd::Kind::kDamaged:
            diagnosis.Find("newest-damaged", newest + ", no block header" + at + rescue);
            break;
        case LogEnd::Kind::kZeros:
            diagnosis.Find("newest-zeros", newest + ", only zeros from" + at.substr(3) + rescue);
            break;
        case LogEnd::Kind::kTooLong:
            diagnosis.Say("newest-long", newest + ", more than " +
                                             std::to_string(kMaxWalkedBlocks) +
                                             " blocks: its end was not looked at" + verify);
            break;
        case LogEnd::Kind::kUnreadable:
            diagnosis.MissOut("newest-unreadable", newest + ", could not be read to its end");
            break;
    }
}

}  // namespace

void CheckLogs(Diagnosis& diagnosis, const Configuration& configuration,
               std::optional<unsigned int> service) {
    diagnosis.Begin("Log directory");
    if (!configuration.logPath) {
        diagnosis.Say("log-directory-unknown", "not known");
        return;
    }
    const std::string directory = CRuntimeInfo::FormatEnvironmentVariables(*configuration.logPath);
    diagnosis.Say("log-directory", *configuration.logPath + " is " + directory);
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0 && errno != EACCES) {
        diagnosis.Find("log-directory-missing", directory + ": no such directory");
        return;
    }
    if (::access(directory.c_str(), R_OK | X_OK) != 0) {
        diagnosis.MissOut("log-directory-unreadable", directory + ": " + std::strerror(errno));
        return;
    }
    if (!S_ISDIR(status.st_mode)) {
        diagnosis.Find("log-directory-missing", directory + ": no such directory");
        return;
    }
    LogFiles files;
    std::vector<std::string> names;
    try {
        names = LogFileNames(directory);
    } catch (const std::exception& failure) {
        diagnosis.MissOut("log-directory-unreadable", directory + ": " + failure.what());
        return;
    }
    for (const std::string& name : names) {
        LookAt(diagnosis, directory, name, files);
    }
    diagnosis.Say("logs", std::to_string(files.binary.size()) + " binary log files, " +
                              std::to_string(files.bytes) + " bytes");
    if (files.foreign != 0) {
        diagnosis.Say("foreign-files", std::to_string(files.foreign) +
                                           " files without the header of a binary log; an export "
                                           "leaves them out");
    }
    if (!files.binary.empty()) {
        CheckNewest(diagnosis, directory, files, service);
    }
    CheckRoom(diagnosis, directory, files.largest, "another log file");
}
