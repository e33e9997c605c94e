// Compressed files of a log in a form that the readers of the export can open.
#ifndef ZYN_ZYNVERIFY_PLAINCOPY_H
#define ZYN_ZYNVERIFY_PLAINCOPY_H

#include <cstdint>
#include <string>
#include <vector>

#include "LogReading/ByteSource.h"
#include "LogReading/LogFiles.h"
#include "LogReading/TemporaryFile.h"

// One log file without a name that holds the data of several files, one behind the other: however
// many of them are compressed, they take one descriptor. One thread.
class PlainCopy {
  public:
    // Copies the data that a source has from an offset on. Throws what reading the source and
    // TemporaryFile throw; what was copied of the source then lies behind the data, until DropRest.
    void Append(ByteSource& source, std::uint64_t dataBegin, const std::string& shownPath);
    // Throws what TemporaryFile throws.
    void DropRest() { file_.ShrinkTo(size_); }

    // Valid as long as the copy. There is one once something was appended.
    [[nodiscard]] std::string Path() const { return file_.Path(); }
    // What was appended, in this order.
    [[nodiscard]] const std::vector<LogFileExtent>& Files() const noexcept { return files_; }

  private:
    TemporaryFile file_;
    std::uint64_t size_ = 0;
    std::vector<LogFileExtent> files_;
};

#endif
