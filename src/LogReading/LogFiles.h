// What a log is: the names and the head of its files, the stream that reads them, how far its
// records may be out of order. For all that reads logs, and for texts that mention the numbers.
#ifndef ZYN_LOGREADING_LOGFILES_H
#define ZYN_LOGREADING_LOGFILES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "MultiFileStream/MultiFileStream.h"

// A log's files: names that begin with the prefix and contain the part. The extension is what the
// service puts at their end, the part with its full stop.
inline constexpr const char* kLogPrefix = "zynlog-";
inline constexpr const char* kLogPart = "txt";
inline constexpr std::string_view kLogExtension = ".txt";
// The format for which the stream takes files with the header only.
inline constexpr const char* kLogFormat = "binary";

inline constexpr unsigned int kLogHeaderBytes = 256;

// How many records of a block are held to be put in order: one that is more places late stays late.
inline constexpr std::uint32_t kReorderLimit = 1000;

class ZynBinaryFileOutputSupport {
  public:
    ZynBinaryFileOutputSupport() = delete;

    // The note that opens a log file: kLogHeaderBytes bytes, lines ended by CR LF. The same string
    // on every call.
    static const std::string& GetHeader();
};

using LogStream = MultiFileInputStream<ZynBinaryFileOutputSupport, kLogHeaderBytes>;

// The names of the log files in a directory, in the order in which they are read: that of their
// bytes. A directory that does not exist has none.
[[nodiscard]] std::vector<std::string> LogFileNames(const std::string& directory);

#endif
