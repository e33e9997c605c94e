// From what a user names to the data of a log.
#ifndef ZYN_LOGREADING_LOGINPUT_H
#define ZYN_LOGREADING_LOGINPUT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "LogReading/ByteSource.h"
#include "LogReading/InputIssue.h"
#include "LogReading/LogData.h"

inline constexpr std::int64_t kSinceMarginSeconds = 60;

struct LogInputOptions {
    // Seconds since 1970: files at the head of a directory's list that were last changed more than
    // kSinceMarginSeconds before are left out, as far as a file behind them begins with a block
    // header. They are not reported.
    std::optional<std::int64_t> since{};
    // Everything will be read twice, in any order: what can be read only once goes through a
    // temporary file.
    bool readableTwice = false;
    // Files whose header is damaged or gone are reported to the listener, and read all the same:
    // from behind it when at least half of it is there, else from their beginning.
    bool damagedHeaders = false;
};

// Opens a log directory (the files that an export reads, in its order, compressed ones where their
// plain names would stand), one file, a pipe, or "-" for standard input. The listener outlives the
// data. What is no log file is left out and reported to the listener; when no file is left, the
// data is Empty(). Throws std::system_error with the path for one that is not there or cannot be
// opened, and what reading a pipe's first bytes throws.
[[nodiscard]] std::unique_ptr<LogData> OpenLog(const std::string& path, InputListener& listener,
                                               const LogInputOptions& options = {});

// One regular file of a log.
struct OpenedLogFile {
    std::shared_ptr<ByteSource> source;  // nullptr: left out, and reported
    std::shared_ptr<RawFile> file;       // that the source reads
    Compression compression = Compression::kNone;
    std::uint64_t dataBegin = 0;  // in the file, as uncompressed
};

// Opens a file and looks for the header of a log file; damagedHeaders as in the options.
[[nodiscard]] OpenedLogFile OpenLogFile(const std::string& path, InputListener& listener,
                                        bool damagedHeaders = false);

#endif
