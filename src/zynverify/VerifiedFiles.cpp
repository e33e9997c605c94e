#include "zynverify/VerifiedFiles.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <utility>

#include "MultiFileStream/DescriptorBudget.h"

namespace {

// Keeps what is wrong with a file until it is reported.
class FileIssues final : public InputListener {
  public:
    void OnIssue(const InputIssue& issue) override { all_.push_back(issue); }
    [[nodiscard]] const std::vector<InputIssue>& All() const noexcept { return all_; }

  private:
    std::vector<InputIssue> all_;
};

FindingKind KindOf(InputIssueKind kind) noexcept {
    switch (kind) {
        case InputIssueKind::kForeign:
            return FindingKind::kForeignFile;
        case InputIssueKind::kTooSmall:
            return FindingKind::kSmallFile;
        case InputIssueKind::kTwin:
            return FindingKind::kTwin;
        case InputIssueKind::kCompressedCut:
        case InputIssueKind::kCompressedDamaged:
            return FindingKind::kCompressed;
        case InputIssueKind::kUnreadable:
            break;
    }
    return FindingKind::kUnreadable;
}

// The path behind its first slash.
std::string FromRoot(const std::string& path) {
    return path.starts_with('/') ? path.substr(1) : "proc/self/cwd/" + path;
}

}  // namespace

VerifiedFiles::VerifiedFiles(const LogToVerify& log, LogStream& stream, LogObserver& observer)
    : log_(log), observer_(observer) {
    if (log.files.empty()) {
        Report(FindingKind::kNoFiles, log.directory, 0, "there are no log files");
    }
    for (const InputIssue& twin : log.twins) {
        Report(FindingKind::kTwin, twin.path, 0, twin.text);
    }
    for (const std::string& name : log.files) {
        Add(log.directory + "/" + name, &name == &log.files.back());
    }
    try {
        OpenPieces(stream);
    } catch (const std::exception& failure) {
        // One has gone, or become another, since it was looked at.
        Report(FindingKind::kUnreadable, log.directory, 0, failure.what());
        stream.OpenLogFiles(log.directory, {}, kLogFormat);
    }
    observer.SetFiles(extents_);
}

bool VerifiedFiles::Growing() const {
    return log_.growing && !extents_.empty() &&
           extents_.back().path == Shown(log_.directory + "/" + log_.files.back());
}

std::string VerifiedFiles::Shown(const std::string& path) const {
    return log_.shown.empty() ? path : log_.shown;
}

void VerifiedFiles::Report(FindingKind kind, const std::string& path, std::uint64_t bytes,
                           std::string text) {
    observer_.ReportFile(kind, Shown(path), bytes, std::move(text));
}

void VerifiedFiles::Add(const std::string& path, bool last) {
    std::uint64_t size = 0;
    try {
        const LogStream::FileToBeRead file(path);
        if (file.HasHeader()) {
            pieces_.push_back({.path = path});
            return;
        }
        size = file.DataSize();
    } catch (const std::logic_error&) {
        // Smaller than a header, which a compressed log file may be.
    } catch (const std::exception& failure) {
        Report(FindingKind::kUnreadable, path, 0, failure.what());
        return;
    }
    AddCompressed(path, size, last && log_.growing);
}

// Behind another copy its data is appended to that one.
void VerifiedFiles::Copy(const OpenedLogFile& opened, const std::string& path) {
    const bool follows = !pieces_.empty() && pieces_.back().copy;
    std::unique_ptr<PlainCopy> fresh = follows ? nullptr : std::make_unique<PlainCopy>();
    PlainCopy& copy = follows ? *pieces_.back().copy : *fresh;
    try {
        copy.Append(*opened.source, opened.dataBegin, Shown(path));
    } catch (const std::exception& failure) {
        Report(FindingKind::kUnreadable, path, 0, failure.what());
        if (follows) {
            copy.DropRest();
        }
        return;
    }
    if (fresh) {
        // Copies stay open while the stream opens as many files as it may.
        static_cast<void>(DescriptorBudget(2 * log_.files.size()));
        pieces_.push_back({.copy = std::move(fresh)});
    }
}

// The way of every other file too, which is then reported for what it is.
void VerifiedFiles::AddCompressed(const std::string& path, std::uint64_t size, bool begun) {
    FileIssues issues;
    const OpenedLogFile opened = OpenLogFile(path, issues);
    if (opened.source) {
        Copy(opened, path);
    }
    for (const InputIssue& issue : issues.All()) {
        const FindingKind kind = KindOf(issue.kind);
        Report(begun && kind == FindingKind::kSmallFile ? FindingKind::kUnfinished : kind, path,
               kind == FindingKind::kForeignFile ? size : 0, issue.text);
    }
}

void VerifiedFiles::OpenPieces(LogStream& stream) {
    // The stream's files are those of a directory: where copies lie elsewhere, it is the root.
    const bool copies = std::any_of(pieces_.begin(), pieces_.end(),
                                    [](const Piece& piece) { return piece.copy != nullptr; });
    std::vector<std::string> names;
    for (Piece& piece : pieces_) {
        const std::string path = piece.copy ? piece.copy->Path() : piece.path;
        names.push_back(copies ? FromRoot(path) : path.substr(log_.directory.size() + 1));
        piece.path = copies ? "/" + names.back() : path;
        piece.shown = Shown(path);
    }
    stream.OpenLogFiles(copies ? "" : log_.directory, names, kLogFormat);
    auto piece = pieces_.begin();
    for (LogFileExtent& file : stream.Extents()) {
        // A file that has lost its header since it was looked at has none.
        while (piece->path != file.path) {
            ++piece;
        }
        if (piece->copy) {
            const std::vector<LogFileExtent>& files = piece->copy->Files();
            extents_.insert(extents_.end(), files.begin(), files.end());
        } else {
            extents_.push_back({piece->shown, file.headerBytes, file.dataBytes});
        }
        ++piece;
    }
}
