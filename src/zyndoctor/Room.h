// Free space of the file systems that are written to.
#ifndef ZYN_ZYNDOCTOR_ROOM_H
#define ZYN_ZYNDOCTOR_ROOM_H

#include <sys/statvfs.h>

#include <cstdint>
#include <string>

#include "zyndoctor/Diagnosis.h"

// Says how much room is left below a directory. A finding: less than `needed` bytes, no file can be
// made, or the file system is read-only; `purpose` says what needs the room, as in "room for ...".
void CheckRoom(Diagnosis& diagnosis, const std::string& directory, std::uint64_t needed,
               const std::string& purpose);

// The same for what the system has said.
void JudgeRoom(Diagnosis& diagnosis, const std::string& directory, const struct statvfs& status,
               std::uint64_t needed, const std::string& purpose);

#endif
