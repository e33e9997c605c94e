// Opens the files of a log for its verification.
#ifndef ZYN_ZYNVERIFY_VERIFIEDFILES_H
#define ZYN_ZYNVERIFY_VERIFIEDFILES_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "LogReading/LogFiles.h"
#include "LogReading/LogInput.h"
#include "zynverify/Findings.h"
#include "zynverify/LogObserver.h"
#include "zynverify/LogOperands.h"
#include "zynverify/PlainCopy.h"

// Files that can be read are opened in the stream; the others, those that an export leaves out, and
// compressed data that is not whole are reported. Compressed files are copied first, uncompressed,
// into temporary files, which live as long as this object. Throws what the observer throws, and
// CheckOSCall "Failed to write temporary file" when a part of a copy cannot be taken back. One
// thread.
class VerifiedFiles {
  public:
    VerifiedFiles(const LogToVerify& log, LogStream& stream, LogObserver& observer);

    // As they lie in the stream, by the paths of the report.
    [[nodiscard]] const std::vector<LogFileExtent>& Extents() const noexcept { return extents_; }
    // Whether the last of them may end in the middle of a block.
    [[nodiscard]] bool Growing() const;

  private:
    // What the stream reads as one file.
    struct Piece {
        std::string path{};                 // of the file
        std::string shown{};                // in the report
        std::unique_ptr<PlainCopy> copy{};  // of compressed files, which take the file's place
    };

    void Add(const std::string& path, bool last);
    void AddCompressed(const std::string& path, std::uint64_t size, bool begun);
    void Copy(const OpenedLogFile& opened, const std::string& path);
    void OpenPieces(LogStream& stream);
    void Report(FindingKind kind, const std::string& path, std::uint64_t bytes, std::string text);
    [[nodiscard]] std::string Shown(const std::string& path) const;

    const LogToVerify& log_;
    LogObserver& observer_;
    std::vector<Piece> pieces_;
    std::vector<LogFileExtent> extents_;
};

#endif
