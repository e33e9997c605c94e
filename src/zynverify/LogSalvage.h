// What can still be read of a damaged log, as a log that is whole: blocks that damage did not touch
// as they are, and the good records of the others in blocks of their own.
#ifndef ZYN_ZYNVERIFY_LOGSALVAGE_H
#define ZYN_ZYNVERIFY_LOGSALVAGE_H

#include <cstdint>
#include <string>
#include <vector>

#include "LogReading/LogData.h"
#include "zynverify/SalvageDirectory.h"

struct SalvagedFile {
    std::string path;          // as opened
    std::string name;          // in the copy; empty: nothing of it was kept
    std::uint64_t bytes = 0;   // of its data, as uncompressed
    std::uint64_t kept = 0;    // of those: blocks and records that are in the copy
    std::uint64_t blocks = 0;  // in the copy
    std::uint64_t records = 0;
    std::uint64_t dropped = 0;  // records that were recognised and could not be kept

    [[nodiscard]] std::uint64_t Skipped() const noexcept { return bytes - kept; }
};

struct SalvageResult {
    std::vector<SalvagedFile> files;  // in the order of reading
    SalvagedFile total;
};

// Copies what is good. A block goes to the copy of the file in which it begins, so none runs on
// from one file into the next there. A packet that cannot be read costs its record, a record header
// that cannot be read the rest of its block; where a block header is broken, the records behind it
// are kept as far as they follow each other. Memory: that of the largest block. Throws what reading
// and the directory's files throw; files that are complete stay. One thread.
[[nodiscard]] SalvageResult SalvageLog(LogData& data, const SalvageDirectory& directory);

#endif
