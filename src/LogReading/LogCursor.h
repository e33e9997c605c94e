// How far a log has been read, kept in a file from one run to the next.
#ifndef ZYN_LOGREADING_LOGCURSOR_H
#define ZYN_LOGREADING_LOGCURSOR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "LogReading/LogData.h"
#include "Support/FileDescriptor.h"

// What was named as a cursor file holds something else; what() is for the user.
class NoCursorFile : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Identifies each file of the log by device and inode, by its name, and by the bytes that were read
// last; so it finds a file that was renamed, rotated or compressed since. One thread.
class LogCursor {
  public:
    // Before anything has been read.
    LogCursor() = default;

    // What the file holds; nothing when it is not there yet. Throws NoCursorFile, and CheckOSCall
    // "Failed to open file for read" or "Failed to read from file".
    [[nodiscard]] static std::optional<LogCursor> Load(const std::string& path);

    // The cursor of a reader that is at these places. before: an earlier cursor of the same files,
    // so that those that were not read since are not opened again. Throws what reading the files
    // throws.
    [[nodiscard]] static LogCursor At(const std::vector<FilePlace>& places,
                                      const LogCursor& before);

    // Sets the offset from which each file is to be read; false, and nothing is set, when the file
    // that was read last is not among them.
    [[nodiscard]] bool Find(std::vector<FilePlace>& files) const;

    // Replaces the file, so that at any time it holds the old cursor or the new one. Throws
    // CheckOSCall "Failed to write cursor file".
    void Store(const std::string& path) const;

  private:
    struct Entry {
        std::uint64_t offset = 0;
        FileIdentity identity;
        std::uint64_t markBytes = 0;  // before the offset
        std::uint64_t mark = 0;       // a sum of those
        std::string name;             // as if it were not compressed
        // While it is in memory: what it was made from.
        std::shared_ptr<ByteSource> source;
    };

    [[nodiscard]] std::string Text() const;
    static std::optional<LogCursor> Parse(const std::string& text);
    static bool Has(const FilePlace& file, const Entry& entry);

    std::vector<Entry> entries_;
    // Of the file that was read last; entries_.size() when nothing was.
    std::size_t last_ = 0;
};

#endif
