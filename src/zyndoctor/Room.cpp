#include "zyndoctor/Room.h"

#include <cerrno>
#include <cstring>

void CheckRoom(Diagnosis& diagnosis, const std::string& directory, std::uint64_t needed,
               const std::string& purpose) {
    struct statvfs status {};
    int result = 0;
    do {
        result = ::statvfs(directory.c_str(), &status);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        diagnosis.MissOut("room-unknown", directory + ": room left: " + std::strerror(errno));
        return;
    }
    JudgeRoom(diagnosis, directory, status, needed, purpose);
}

void JudgeRoom(Diagnosis& diagnosis, const std::string& directory, const struct statvfs& status,
               std::uint64_t needed, const std::string& purpose) {
    const std::uint64_t unit = status.f_frsize;
    const std::uint64_t free = unit * status.f_bavail;
    constexpr std::uint64_t kMiB = std::uint64_t{1024} * 1024;
    if ((status.f_flag & ST_RDONLY) != 0) {
        diagnosis.Find("read-only", directory + ": the file system is read-only");
    } else if (free < needed) {
        diagnosis.Find("no-room", "room left: " + std::to_string(free) + " bytes, too little for " +
                                      purpose + " (" + std::to_string(needed) + " bytes)");
    } else if (status.f_files != 0 && status.f_favail == 0) {
        diagnosis.Find("no-room", "room left: for no more files, whatever their size");
    } else {
        diagnosis.Say("room", "room left: " + std::to_string(free / kMiB) + " of " +
                                  std::to_string(unit * status.f_blocks / kMiB) + " MiB");
    }
}
