// The tracing service, who holds the lock of its senders, and the regions that clients have left.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Support/FileDescriptor.h"
#include "Support/FileSystem.h"
#include "Support/RuntimeInfo.h"
#include "Support/SharedMemory.h"
#include "TraceService/MessageRing.h"
#include "ZynService/ZynServiceMonitor.h"
#include "zyndoctor/Checks.h"
#include "zyndoctor/ProcessName.h"

namespace {

constexpr const char* kService = "ZynService";
constexpr const char* kServiceRing = "ZynServerMessageBuffer";
constexpr const char* kTraceRing = "ZynTraceBuffer";
constexpr const char* kSeed = "ZynRecordSequenceNumberSeed";
constexpr const char* kSendersLock = "ZynServerMessageLock.lck";
// A sender holds the lock while it copies a message, which takes microseconds.
constexpr auto kLongHold = std::chrono::milliseconds(50);

std::string InRunDirectory(const std::string& name) {
    return CRuntimeInfo::FormatEnvironmentVariables(CRuntimeInfo::kRunDirectory) + name;
}

bool Exists(const std::string& name) { return ::access(InRunDirectory(name).c_str(), F_OK) == 0; }

// The rule by which clients find the service, with another consequence.
class ServiceProbe final : private WatchServiceStartUsingPIDFile {
  public:
    std::optional<unsigned int> Look() {
        Check(kService);
        return pid_;
    }

  private:
    void OnServiceStarted(unsigned int pid) override { pid_ = pid; }

    std::optional<unsigned int> pid_;
};

// A region of the service, opened as clients open it.
void CheckServiceRegion(Diagnosis& diagnosis, const std::string& name, std::size_t bytes) {
    const std::string file = name + ".map";
    if (!Exists(file)) {
        diagnosis.Find("service-region-missing", file + " is missing: clients cannot register");
        return;
    }
    try {
        SharedMemory(name).Require(bytes);
    } catch (const std::exception& failure) {
        diagnosis.Find("service-region-unusable",
                       file + ": " + failure.what() + ": clients cannot register");
    }
}

// Who has a write lock on the first byte, which senders take; 0: nobody, -1: a process whose id is
// not known.
pid_t LockHolder(int file) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    if (::fcntl(file, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) {
        return 0;
    }
    return lock.l_pid > 0 ? lock.l_pid : -1;
}

// The process whose region a file is; nothing for another file.
std::optional<unsigned int> OwnerOf(std::string_view name, std::string_view prefix) {
    constexpr std::string_view kEnd = ".map";
    if (!name.starts_with(prefix) || !name.ends_with(kEnd) ||
        name.size() <= prefix.size() + kEnd.size()) {
        return std::nullopt;
    }
    const std::string_view number =
        name.substr(prefix.size(), name.size() - prefix.size() - kEnd.size());
    unsigned int pid = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), pid);
    if (result.ec != std::errc{} || result.ptr != number.data() + number.size()) {
        return std::nullopt;
    }
    return pid;
}

}  // namespace

std::optional<unsigned int> FindService() { return ServiceProbe().Look(); }

void CheckService(Diagnosis& diagnosis, std::optional<unsigned int> service) {
    diagnosis.Begin("Service");
    const std::string pidFile = std::string(kService) + ".pid";
    if (service) {
        diagnosis.Say("service-runs", ProcessName(*service) + " lives");
        CheckServiceRegion(diagnosis, kServiceRing,
                           MessageRing::RegionBytes(MessageRing::kMessageCapacity));
        CheckServiceRegion(diagnosis, kSeed, sizeof(std::uint32_t));
        return;
    }
    if (!Exists(pidFile)) {
        diagnosis.Say("service-not-running", "no pid file: not running");
        return;
    }
    const auto pid = WatchServiceStartUsingPIDFile::ReadPid(InRunDirectory(pidFile));
    if (!pid) {
        diagnosis.Find("service-pid-invalid",
                       pidFile + " holds no process id: counts as not running");
    } else if (!ProcessLives(*pid)) {
        diagnosis.Find("service-dead",
                       "pid " + std::to_string(*pid) + " does not exist any more: not running");
    } else {
        diagnosis.Find("service-lock-missing", "pid " + std::to_string(*pid) + " lives, but " +
                                                   kService +
                                                   ".lck is missing: counts as not running");
    }
}

void CheckSendersLock(Diagnosis& diagnosis) {
    diagnosis.Begin("Lock of the senders");
    // Without waiting, and for reading, which is enough to query a lock.
    const FileDescriptor file(
        ::open(InRunDirectory(kSendersLock).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen()) {
        if (errno == ENOENT) {
            diagnosis.Say("lock-free", "nobody is sending");
        } else {
            diagnosis.MissOut("lock-unreadable",
                              std::string(kSendersLock) + ": " + std::strerror(errno));
        }
        return;
    }
    pid_t holder = LockHolder(file.Get());
    if (holder != 0) {
        const pid_t first = holder;
        std::this_thread::sleep_for(kLongHold);
        holder = LockHolder(file.Get()) == first ? first : 0;
    }
    if (holder == 0) {
        diagnosis.Say("lock-free", std::string(kSendersLock) + " is there; nobody holds it");
    } else {
        diagnosis.Find("lock-held",
                       std::string(kSendersLock) + " is held by " +
                           (holder > 0 ? ProcessName(static_cast<unsigned int>(holder))
                                       : std::string("a process that cannot be told")) +
                           ": all who send to the service wait for it");
    }
}

void CheckClientRegions(Diagnosis& diagnosis) {
    diagnosis.Begin("Regions of clients");
    bool any = false;
    for (const char* prefix : {kServiceRing, kTraceRing}) {
        std::vector<std::string> names;
        try {
            CFileSystem::FindAllFiles(InRunDirectory(""), prefix, ".map", names);
        } catch (const std::exception& failure) {
            diagnosis.MissOut("regions-unreadable", failure.what());
        }
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            const auto pid = OwnerOf(name, prefix);
            if (!pid) {
                continue;
            }
            any = true;
            std::string text = name;
            text.append(": process ").append(std::to_string(*pid));
            if (ProcessLives(*pid)) {
                diagnosis.Say("region-in-use", text.append(" lives"));
            } else {
                diagnosis.Find("region-left", text.append(" is dead; the file can be removed"));
            }
        }
    }
    if (!any) {
        diagnosis.Say("no-regions", "none");
    }
}
