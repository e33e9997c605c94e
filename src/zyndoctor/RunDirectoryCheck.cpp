// The run directory, through which the service and its clients meet: whether it is there, who may
// write in it and what that lets them do.

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "Support/RuntimeInfo.h"
#include "TraceService/MessageRing.h"
#include "zyndoctor/Checks.h"
#include "zyndoctor/Room.h"

namespace {

std::string UserName(uid_t user) {
    const passwd* entry = ::getpwuid(user);
    return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::string GroupName(gid_t group) {
    const struct group* entry = ::getgrgid(group);
    return entry != nullptr ? entry->gr_name : std::to_string(group);
}

std::string Octal(mode_t mode) {
    std::array<char, 8> text{};
    static_cast<void>(
        std::snprintf(text.data(), text.size(), "%o", static_cast<unsigned int>(mode & 07777U)));
    return text.data();
}

// How strict the kernel is with files of others in sticky directories; 0 when it does not say.
int ProtectedRegular() {
    std::ifstream setting("/proc/sys/fs/protected_regular");
    int level = 0;
    return setting >> level ? level : 0;
}

void CheckMode(Diagnosis& diagnosis, const std::string& directory, const struct stat& status) {
    diagnosis.Say("run-directory", directory + ": mode " + Octal(status.st_mode) + ", owner " +
                                       UserName(status.st_uid) + ", group " +
                                       GroupName(status.st_gid));
    if (::access(directory.c_str(), W_OK | X_OK) != 0) {
        diagnosis.Find("run-directory-not-writable", directory + ": not writable by " +
                                                         UserName(::geteuid()) +
                                                         "; pause, resume and reload fail");
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        diagnosis.Find("run-directory-open",
                       directory +
                           ": writable by every user: each of them can pause tracing, remove the "
                           "regions of others or pose as the service; give it to a group");
    }
    const int strict = ProtectedRegular();
    if ((status.st_mode & S_ISVTX) != 0 && ((strict >= 1 && (status.st_mode & S_IWOTH) != 0) ||
                                            (strict >= 2 && (status.st_mode & S_IWGRP) != 0))) {
        diagnosis.Find("run-directory-sticky",
                       directory +
                           ": sticky: the kernel (fs.protected_regular) refuses senders a lock "
                           "file that another user has made");
    }
}

}  // namespace

bool CheckRunDirectory(Diagnosis& diagnosis) {
    diagnosis.Begin("Run directory");
    const std::string directory =
        CRuntimeInfo::FormatEnvironmentVariables(CRuntimeInfo::kRunDirectory);
    const char* product = std::getenv("KORVA_VANTOREL_DIR");
    const bool isSet = product != nullptr && *product != '\0';
    diagnosis.Say("run-directory-variable", isSet ? std::string("KORVA_VANTOREL_DIR is ") + product
                                                  : std::string("KORVA_VANTOREL_DIR is not set"));
    struct stat status {};
    const bool there = ::stat(directory.c_str(), &status) == 0;
    if (!there && errno == EACCES) {
        diagnosis.MissOut("run-directory-unreadable", directory + ": " + std::strerror(errno));
        return false;
    }
    if (!there || !S_ISDIR(status.st_mode)) {
        diagnosis.Find("run-directory-missing",
                       directory + (isSet ? ": no such directory; nothing creates it"
                                          : ": no such directory; set KORVA_VANTOREL_DIR to the "
                                            "product directory (the package makes /usr/vantorel)"));
        return false;
    }
    CheckMode(diagnosis, directory, status);
    if (::access(directory.c_str(), R_OK | X_OK) != 0) {
        // What cannot be seen must not pass for what is not there.
        diagnosis.MissOut("run-directory-unreadable", directory + ": " + std::strerror(errno));
        return false;
    }
    CheckRoom(diagnosis, directory,
              std::uint64_t{MessageRing::RegionBytes(MessageRing::kTraceCapacity)} +
                  MessageRing::RegionBytes(MessageRing::kMessageCapacity),
              "a client's regions");
    return true;
}
