#include "LogReading/LogFollower.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <map>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "LogReading/FileBeginning.h"
#include "LogReading/FollowedLog.h"
#include "LogReading/LogFiles.h"
#include "LogReading/LogInput.h"
#include "LogReading/LogListing.h"

namespace {

constexpr std::uint32_t kListingEvents =
    IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The paths of a log's files; list: gives the names of those in a directory.
template <typename List>
std::vector<std::string> PathsOf(const FollowedLog& log, List&& list) {
    if (!log.directory) {
        return {log.path};
    }
    std::string directory = log.path;
    while (directory.ends_with('/')) {
        directory.pop_back();
    }
    std::vector<std::string> paths;
    for (const std::string& name : list(directory.empty() ? "/" : directory)) {
        paths.push_back(PathIn(directory, name));
    }
    return paths;
}

}  // namespace

class LogFollower::FirstIssues final : public InputListener {
  public:
    explicit FirstIssues(InputListener& listener) : listener_(listener) {}

    void OnIssue(const InputIssue& issue) override {
        if (issue.kind != InputIssueKind::kTooSmall && issue.kind != InputIssueKind::kForeign) {
            listener_.OnIssue(issue);
        }
    }

  private:
    InputListener& listener_;
};

LogFollower::LogFollower(const std::vector<std::string>& paths, FollowListener& listener)
    : listener_(listener),
      firstIssues_(std::make_unique<FirstIssues>(listener)),
      watches_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    for (const std::string& path : paths) {
        struct stat status {};
        if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        auto log = std::make_unique<FollowedLog>();
        log->number = logs_.size();
        log->path = path;
        log->directory = S_ISDIR(status.st_mode);
        const std::string watched = log->directory ? path : DirectoryOf(path);
        // Without a watch the periodic look has to do, as on file systems without notification.
        if (watches_.IsOpen()) {
            inotify_add_watch(watches_.Get(), watched.c_str(),
                              kListingEvents | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB);
        }
        OpenFirst(*log);
        logs_.push_back(std::move(log));
    }
}

LogFollower::~LogFollower() = default;

// What is there before the first look is one sequence.
void LogFollower::OpenFirst(FollowedLog& log) {
    const std::vector<std::string> paths =
        PathsOf(log, [this](const std::string& path) { return ListLogFiles(path, listener_); });
    auto stream = std::make_unique<FollowedStream>();
    FollowedFile* last = nullptr;
    for (const std::string& path : paths) {
        OpenedLogFile opened = OpenLogFile(path, *firstIssues_);
        if (!opened.source) {
            continue;
        }
        stream->data.Add(path, opened.source, kLogHeaderBytes);
        last = nullptr;
        if (opened.compression == Compression::kNone) {
            auto file = std::make_unique<FollowedFile>();
            file->raw = opened.file;
            file->source = std::static_pointer_cast<PlainSource>(opened.source);
            file->taken = opened.file->Size();
            file->grown = FollowClock::now();
            last = file.get();
            log.files.push_back(std::move(file));
        }
    }
    if (last != nullptr) {
        last->stream = stream.get();
    }
    if (!stream->data.Empty()) {
        log.streams.push_back(std::move(stream));
    }
}

void LogFollower::BeginAt(const std::string& path, std::uint64_t offset) {
    for (const auto& log : logs_) {
        for (const auto& stream : log->streams) {
            const auto pieces = stream->data.Pieces();
            for (std::size_t index = 0; index < pieces.size(); ++index) {
                if (pieces[index].path == path) {
                    stream->data.BeginAt(index, offset);
                }
            }
        }
    }
}

std::vector<FilePlace> LogFollower::Files(std::size_t log) const {
    std::vector<FilePlace> files;
    for (const auto& stream : logs_[log]->streams) {
        for (const LogData::Piece& piece : stream->data.Pieces()) {
            files.push_back({piece.path, piece.source, piece.from});
        }
    }
    return files;
}

std::vector<FilePlace> LogFollower::Places(std::size_t log) const { return logs_[log]->Places(); }

void LogFollower::Look() {
    const FollowClock::time_point now = FollowClock::now();
    const bool list = listingChanged_ || now - lastListing_ >= kLookPeriod;
    for (const auto& log : logs_) {
        if (list) {
            LookForFiles(*log);
        }
        LookAtFiles(*log);
        for (const auto& stream : log->streams) {
            Read(*log, *stream);
        }
        if (list) {
            log->LetGo(now - kPatience);
        }
    }
    if (list) {
        listingChanged_ = false;
        lastListing_ = now;
    }
}

// Which files there are, and which are new.
void LogFollower::LookForFiles(FollowedLog& log) {
    const std::vector<std::string> paths = PathsOf(log, LogFileNames);
    std::map<std::pair<dev_t, ino_t>, FollowedFile*> files;
    for (const auto& file : log.files) {
        file->listed = false;
        files[{file->raw->Identity().device, file->raw->Identity().inode}] = file.get();
    }
    for (const std::string& path : paths) {
        struct stat status {};
        if (stat(path.c_str(), &status) != 0) {
            continue;
        }
        const auto known = files.find({status.st_dev, status.st_ino});
        if (known != files.end()) {
            known->second->listed = true;
        } else if (S_ISREG(status.st_mode)) {
            AddFile(log, path);
        }
    }
}

void LogFollower::AddFile(FollowedLog& log, const std::string& path) {
    try {
        auto file = std::make_unique<FollowedFile>();
        file->raw = std::make_shared<RawFile>(path);
        file->grown = FollowClock::now();
        log.files.push_back(std::move(file));
    } catch (const std::exception& failure) {
        // It may have gone since it was listed.
        if (access(path.c_str(), F_OK) == 0 && log.unreadable.insert(path).second) {
            listener_.OnIssue({InputIssueKind::kUnreadable, path, failure.what()});
        }
    }
}

void LogFollower::LookAtFiles(FollowedLog& log) {
    // Streams may come, files not.
    for (const auto& file : log.files) {
        if (!file->foreign) {
            LookAtFile(log, *file);
        }
        // Whether it ends within a block decides what the next file is.
        if (file->stream != nullptr) {
            Read(log, *file->stream);
        }
    }
}

void LogFollower::LookAtFile(FollowedLog& log, FollowedFile& file) {
    const std::uint64_t before = file.raw->Size();
    file.raw->Refresh();
    const std::uint64_t size = file.raw->Size();
    if (size != before) {
        file.grown = FollowClock::now();
    }
    if (!file.source) {
        Begin(log, file);
        return;
    }
    const std::uint64_t known = file.stream != nullptr ? *file.source->Size() : file.taken;
    if (size < kLogHeaderBytes) {
        // Until it is a log file once more, it is read no further.
        log.Restart(file, 0);
    } else if (size < known) {
        log.Restart(file, size);
    } else if (size > known) {
        if (file.BeganAnew()) {
            log.Restart(file, kLogHeaderBytes);
        }
        log.Grow(file);
    }
}

// Looks whether a file has become a log file, and how it begins.
void LogFollower::Begin(FollowedLog& log, FollowedFile& file) {
    if (file.foreign || file.raw->Size() < kLogHeaderBytes) {
        return;
    }
    std::array<char, kLogHeaderBytes> bytes{};
    const std::size_t count = file.raw->TryReadAt(0, bytes.data(), bytes.size(), bytes.size());
    if (count < kLogHeaderBytes) {
        return;
    }
    if (std::string_view(bytes.data(), kLogHeaderBytes) !=
        ZynBinaryFileOutputSupport::GetHeader()) {
        file.foreign = true;
        if (RecognizeCompression({bytes.data(), count}) == Compression::kNone) {
            listener_.OnIssue({InputIssueKind::kForeign, file.raw->Path(),
                               "does not begin with the header of a log file"});
        }
        file.raw->Park();
        return;
    }
    const auto source = std::make_shared<PlainSource>(file.raw);
    const std::optional<FollowedStream*> goesOn = StreamToGoOnWith(log, file, source);
    if (!goesOn) {
        return;
    }
    file.source = source;
    file.taken = file.raw->Size();
    if (*goesOn == nullptr) {
        log.AddStream(file, kLogHeaderBytes);
        return;
    }
    for (const auto& other : log.files) {
        if (other->stream == *goesOn) {
            other->stream = nullptr;
        }
    }
    file.stream = *goesOn;
    file.stream->data.Add(file.raw->Path(), source, kLogHeaderBytes);
    file.stream->rests = false;
}

// Hands out the whole blocks of a stream.
void LogFollower::Read(FollowedLog& log, FollowedStream& stream) {
    if (stream.rests) {
        return;
    }
    const FollowClock::time_point now = FollowClock::now();
    if (stream.unfinished && stream.walker.IsLost() && now - stream.tried < kLookPeriod / 2) {
        return;
    }
    try {
        ReadBlocks(log, stream);
    } catch (const std::exception&) {
        // Amid a truncation, which the next look will see.
        if (!stream.HasShrunk()) {
            throw;
        }
        return;
    }
    stream.rests = !stream.walker.IsLost();
    stream.data.ReleaseWindow();
    log.NoteMark(stream);
}

void LogFollower::ReadBlocks(const FollowedLog& log, FollowedStream& stream) {
    while (true) {
        switch (stream.walker.Next()) {
            case BlockWalker::Step::kBlock:
                listener_.OnBlock(log.number, stream.walker.Block(), stream.data);
                break;
            case BlockWalker::Step::kDamage:
                listener_.OnDamagedPlace(log.number, stream.walker.Damage(), stream.data);
                break;
            case BlockWalker::Step::kEnd:
                stream.unfinished = false;
                return;
            case BlockWalker::Step::kUnfinished:
                stream.unfinished = true;
                stream.tried = FollowClock::now();
                return;
        }
    }
}

LogFollower::Event LogFollower::Wait(int stop, int output) {
    std::array<pollfd, 3> wanted{{{stop, POLLIN, 0}, {output, 0, 0}, {watches_.Get(), POLLIN, 0}}};
    poll(wanted.data(), wanted.size(), static_cast<int>(kLookPeriod.count()));
    if (wanted[0].revents != 0) {
        return Event::kStop;
    }
    if ((wanted[1].revents & (POLLERR | POLLHUP)) != 0) {
        return Event::kOutputClosed;
    }
    if (wanted[2].revents != 0) {
        alignas(inotify_event) std::array<char, 16384> events{};
        ssize_t count = 0;
        while ((count = read(watches_.Get(), events.data(), events.size())) > 0) {
            for (ssize_t at = 0; at < count;) {
                const auto* const event =
                    reinterpret_cast<const inotify_event*>(events.data() + at);
                listingChanged_ =
                    listingChanged_ || (event->mask & (kListingEvents | IN_Q_OVERFLOW)) != 0;
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
    }
    return Event::kLook;
}
