// A file without a name, for what cannot be read twice where it comes from.
#ifndef ZYN_LOGREADING_TEMPORARYFILE_H
#define ZYN_LOGREADING_TEMPORARYFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "Support/FileDescriptor.h"

// In TMPDIR, else /tmp; made with the first writing, and gone with the process whatever ends it.
// Throws CheckOSCall "Failed to create temporary file", "Failed to write temporary file", "Failed
// to read temporary file". One thread.
class TemporaryFile {
  public:
    void WriteAt(std::uint64_t offset, const char* bytes, std::size_t count);
    // All of the bytes have been written.
    void ReadAt(std::uint64_t offset, char* buffer, std::size_t count);
    // Drops what lies behind so many bytes.
    void ShrinkTo(std::uint64_t size);
    // By which this process can open it anew as long as this object lives; once it has been
    // written.
    [[nodiscard]] std::string Path() const {
        return "/proc/self/fd/" + std::to_string(file_.Get());
    }
    // Gives the disk's room back.
    void Clear() noexcept { file_.Close(); }

  private:
    FileDescriptor file_;
};

#endif
