#include "LogReading/LogFollower.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <iterator>
#include <ranges>
#include <set>
#include <system_error>
#include <utility>

#include "LogReading/LogFiles.h"
#include "LogReading/LogInput.h"
#include "LogReading/LogListing.h"
#include "Support/ValidationException.h"
#include "TraceData/PacketLayout.h"

namespace {

constexpr std::size_t kMarkBytes = 64;
constexpr std::uint32_t kListingEvents =
    IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;

// A new file whose beginning is not clear is taken for what it looks like when it has rested for so
// long; and when a file before it is not clear either, for so long.
constexpr auto kRestPatience = 2 * LogFollower::kLookPeriod;
constexpr auto kUndecidedPatience = 5 * LogFollower::kLookPeriod;
// The flags of a block header and its length.
constexpr std::uint64_t kTellingHeaderBytes = 1 + kPacketLengthBytes;

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
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

// Of a log, by what the system knows it by.
struct LogFollower::File {
    std::shared_ptr<RawFile> raw;
    std::shared_ptr<PlainSource> source;  // nullptr: not yet a log file, or none
    bool foreign = false;
    // What was given to streams: those behind it are new.
    std::uint64_t taken = 0;
    // Whose last piece is this file.
    Stream* stream = nullptr;
    // The bytes before an offset that was read: who changes them begins anew.
    std::array<char, kMarkBytes> mark{};
    std::size_t markBytes = 0;
    std::uint64_t markEnd = 0;
    Clock::time_point grown;
    bool listed = true;
};

// Pieces that are read as one sequence.
struct LogFollower::Stream {
    LogData data;
    BlockWalker walker{data, LogEnd::kFollowed};
    bool rests = false;       // nothing came since it was read
    bool unfinished = false;  // it ends within a block
    Clock::time_point tried;  // when a block was searched for in vain
};

struct LogFollower::Log {
    std::size_t number = 0;
    std::string path;
    bool directory = false;
    std::vector<std::unique_ptr<File>> files;
    std::vector<std::unique_ptr<Stream>> streams;
    // Of streams that are gone, how far their files were read.
    std::vector<FilePlace> places;
    std::set<std::string> unreadable;
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
        auto log = std::make_unique<Log>();
        log->number = logs_.size();
        log->path = path;
        log->directory = S_ISDIR(status.st_mode);
        const std::string watched = log->directory ? path : DirectoryOf(path);
        // Without a watch the look every now and then must do, as on file systems that do not tell.
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
void LogFollower::OpenFirst(Log& log) {
    std::vector<std::string> paths{log.path};
    if (log.directory) {
        paths.clear();
        std::string directory = log.path;
        while (directory.ends_with('/')) {
            directory.pop_back();
        }
        for (const std::string& name :
             ListLogFiles(directory.empty() ? "/" : directory, listener_)) {
            paths.push_back(PathIn(directory, name));
        }
    }
    auto stream = std::make_unique<Stream>();
    File* last = nullptr;
    for (const std::string& path : paths) {
        OpenedLogFile opened = OpenLogFile(path, *firstIssues_);
        if (!opened.source) {
            continue;
        }
        stream->data.Add(path, opened.source, kLogHeaderBytes);
        last = nullptr;
        if (opened.compression == Compression::kNone) {
            auto file = std::make_unique<File>();
            file->raw = opened.file;
            file->source = std::static_pointer_cast<PlainSource>(opened.source);
            file->taken = opened.file->Size();
            file->grown = Clock::now();
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

std::vector<FilePlace> LogFollower::Places(std::size_t log) const {
    // A file may have been read in several streams, of which the last counts.
    std::map<const RawFile*, FilePlace> places;
    for (const FilePlace& place : logs_[log]->places) {
        places[place.source->Raw().get()] = place;
    }
    for (const auto& stream : logs_[log]->streams) {
        for (FilePlace& place : stream->data.PlacesAt(stream->walker.Position())) {
            places[place.source->Raw().get()] = place;
        }
    }
    std::vector<FilePlace> sorted;
    sorted.reserve(places.size());
    for (auto& [raw, place] : places) {
        sorted.push_back(std::move(place));
    }
    std::ranges::sort(sorted, {}, &FilePlace::path);
    return sorted;
}

void LogFollower::Look() {
    const Clock::time_point now = Clock::now();
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
            LetGo(*log);
        }
    }
    if (list) {
        listingChanged_ = false;
        lastListing_ = now;
    }
}

// Which files there are, and which are new.
void LogFollower::LookForFiles(Log& log) {
    std::vector<std::string> paths{log.path};
    if (log.directory) {
        std::vector<std::string> names = LogFileNames(log.path);
        paths.clear();
        std::string directory = log.path;
        while (directory.ends_with('/')) {
            directory.pop_back();
        }
        for (const std::string& name : names) {
            paths.push_back(PathIn(directory, name));
        }
    }
    std::map<std::pair<dev_t, ino_t>, File*> files;
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

void LogFollower::AddFile(Log& log, const std::string& path) {
    try {
        auto file = std::make_unique<File>();
        file->raw = std::make_shared<RawFile>(path);
        file->grown = Clock::now();
        log.files.push_back(std::move(file));
    } catch (const std::exception& failure) {
        // It may have gone since it was listed.
        if (access(path.c_str(), F_OK) == 0 && log.unreadable.insert(path).second) {
            listener_.OnIssue({InputIssueKind::kUnreadable, path, failure.what()});
        }
    }
}

void LogFollower::LookAtFiles(Log& log) {
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

void LogFollower::LookAtFile(Log& log, File& file) {
    const std::uint64_t before = file.raw->Size();
    file.raw->Refresh();
    const std::uint64_t size = file.raw->Size();
    if (size != before) {
        file.grown = Clock::now();
    }
    if (!file.source) {
        Begin(log, file);
        return;
    }
    const std::uint64_t known = file.stream != nullptr ? *file.source->Size() : file.taken;
    if (size < kLogHeaderBytes) {
        // It will be another file.
        Restart(log, file, 0);
    } else if (size < known) {
        Restart(log, file, size);
    } else if (size > known) {
        if (BeganAnew(file)) {
            Restart(log, file, kLogHeaderBytes);
        }
        Grow(log, file);
    }
}

// Looks whether a file has become a log file, and how it begins.
void LogFollower::Begin(Log& log, File& file) {
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
    Stream* goesOn = nullptr;
    if (!HowItBegins(log, file, source, goesOn)) {
        return;
    }
    file.source = source;
    file.taken = file.raw->Size();
    if (goesOn == nullptr) {
        auto stream = std::make_unique<Stream>();
        goesOn = stream.get();
        log.streams.push_back(std::move(stream));
    }
    for (const auto& other : log.files) {
        if (other->stream == goesOn) {
            other->stream = nullptr;
        }
    }
    goesOn->data.Add(file.raw->Path(), source, kLogHeaderBytes);
    goesOn->rests = false;
    file.stream = goesOn;
}

// Whether it can be told how a new file begins: with a block, or with the rest of one that another
// file broke off, whose stream goesOn is set to.
//
// Bytes with the flags and the length of a header are hardly anything else. But the last bytes of a
// message, up to the flags of a header, may read together with the header behind them as one that
// has an id; and where only the end of a message is missing, any bytes fill the gap. So a decision
// waits while the files before, or more bytes, may still tell; what nobody writes to any more is
// taken for what it looks like.
bool LogFollower::HowItBegins(Log& log, const File& file,
                              const std::shared_ptr<PlainSource>& source, Stream*& goesOn) {
    LogData alone;
    alone.Add(file.raw->Path(), source, kLogHeaderBytes);
    const std::uint64_t bytes = alone.Size();
    const auto rested = Clock::now() - file.grown;
    const auto [broken, undecided] = PredecessorOf(log, file);
    if (bytes == 0 || (undecided && rested < kUndecidedPatience)) {
        return false;
    }
    const std::optional<std::uint64_t> rest =
        broken == nullptr ? std::nullopt : RestIn(*broken, file.raw->Path(), source);
    const bool shifted = rest && *rest < kTellingHeaderBytes && *rest < bytes;
    switch (BlockBeginsAt(alone, 0)) {
        case HeaderShape::kWhole:
            goesOn = shifted ? broken : nullptr;
            return true;
        case HeaderShape::kCut:
            goesOn = shifted || bytes < kTellingHeaderBytes ? broken : nullptr;
            return shifted || rested >= kRestPatience;
        case HeaderShape::kNone:
            break;
    }
    goesOn = broken;
    return broken != nullptr || rested >= kRestPatience;
}

// How many bytes at the beginning of a file complete the block that a stream ends with, if what
// stands behind them may be a header.
std::optional<std::uint64_t> LogFollower::RestIn(const Stream& broken, const std::string& path,
                                                 const std::shared_ptr<PlainSource>& source) {
    LogData joined;
    for (const LogData::Piece& piece : broken.data.Pieces()) {
        joined.Add(piece.path, piece.source, piece.from);
    }
    const std::uint64_t before = joined.Size();
    joined.Add(path, source, kLogHeaderBytes);
    const auto end = WholeBlockEnd(joined, broken.walker.Position());
    return end && *end >= before && HeaderStandsAt(joined, *end, LogEnd::kFollowed)
               ? std::optional(*end - before)
               : std::nullopt;
}

// The file that was found before it, or else the one whose name comes before its own.
LogFollower::Predecessor LogFollower::PredecessorOf(Log& log, const File& file) {
    Predecessor predecessor;
    const File* byName = nullptr;
    bool before = true;
    for (const auto& other : log.files) {
        const std::string& path = other->raw->Path();
        if (other.get() == &file) {
            before = false;
        } else if (other->stream != nullptr) {
            const Stream& stream = *other->stream;
            const bool broken = stream.unfinished && !stream.walker.IsLost();
            if (before) {
                predecessor = {broken ? other->stream : nullptr, false};
            }
            if (broken && path < file.raw->Path() &&
                (byName == nullptr || byName->raw->Path() < path)) {
                byName = other.get();
            }
        } else if (!other->source && !other->foreign && (before || path < file.raw->Path())) {
            // One that stays empty is none that anything goes on from.
            predecessor.undecided = predecessor.undecided || other->raw->Size() > kLogHeaderBytes ||
                                    Clock::now() - other->grown < kRestPatience;
        }
    }
    if (predecessor.brokenOff == nullptr && byName != nullptr) {
        predecessor.brokenOff = byName->stream;
    }
    return predecessor;
}

// Whether bytes that were read are others now: the file was emptied and has grown again.
bool LogFollower::BeganAnew(File& file) {
    std::array<char, kMarkBytes> now{};
    const std::size_t count = file.raw->TryReadAt(file.markEnd - file.markBytes, now.data(),
                                                  file.markBytes, file.markBytes);
    return count != file.markBytes ||
           !std::equal(now.begin(), now.begin() + static_cast<std::ptrdiff_t>(count),
                       file.mark.begin());
}

// Reads a file from another place on; 0: when it has become a log file once more.
void LogFollower::Restart(Log& log, File& file, std::uint64_t from) {
    std::uint64_t shown = 0;
    if (file.stream != nullptr) {
        const LogData& data = file.stream->data;
        const LogPlace place = data.PlaceOf(file.stream->walker.Position());
        const bool within =
            data.PieceOf(file.stream->walker.Position()) + 1 == data.Pieces().size();
        shown = within ? place.offset : kLogHeaderBytes;
        // What it still held back is gone.
        file.stream->rests = true;
        file.stream->unfinished = false;
    }
    file.markBytes = 0;
    file.markEnd = 0;
    if (from == 0) {
        file.source.reset();
        file.stream = nullptr;
        return;
    }
    // The end of a block that was not yet whole is written anew.
    const std::uint64_t begin = file.stream != nullptr ? std::min(from, shown) : from;
    file.source = std::make_shared<PlainSource>(file.raw);
    file.taken = file.raw->Size();
    file.source->SetSize(file.taken);
    auto stream = std::make_unique<Stream>();
    stream->data.Add(file.raw->Path(), file.source, begin);
    file.stream = stream.get();
    log.streams.push_back(std::move(stream));
}

// There is more of a file.
void LogFollower::Grow(Log& log, File& file) {
    const std::uint64_t size = file.raw->Size();
    if (file.stream == nullptr) {
        // Others have come behind it: what it gets now is for itself.
        file.source = std::make_shared<PlainSource>(file.raw);
        auto stream = std::make_unique<Stream>();
        stream->data.Add(file.raw->Path(), file.source, file.taken);
        file.stream = stream.get();
        log.streams.push_back(std::move(stream));
    }
    file.source->SetSize(size);
    file.taken = size;
    file.stream->rests = false;
}

// Hands out the whole blocks of a stream.
void LogFollower::Read(Log& log, Stream& stream) {
    if (stream.rests) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (stream.unfinished && stream.walker.IsLost() && now - stream.tried < kLookPeriod / 2) {
        return;
    }
    try {
        ReadBlocks(log, stream);
    } catch (const std::exception&) {
        // Amid a truncation, which the next look will see.
        if (!HasShrunk(stream)) {
            throw;
        }
        return;
    }
    stream.rests = !stream.walker.IsLost();
    stream.data.ReleaseWindow();
    NoteMark(log, stream);
}

void LogFollower::ReadBlocks(Log& log, Stream& stream) {
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
                stream.tried = Clock::now();
                return;
        }
    }
}

bool LogFollower::HasShrunk(const Stream& stream) {
    return std::ranges::any_of(stream.data.Pieces(), [](const LogData::Piece& piece) {
        return piece.source->HasShrunk();
    });
}

// Remembers the last bytes of what has been read of a file.
void LogFollower::NoteMark(Log& log, const Stream& stream) {
    const std::uint64_t position = stream.walker.Position();
    for (const auto& file : log.files) {
        if (file->stream != &stream) {
            continue;
        }
        const LogData::Piece& piece = stream.data.Pieces().back();
        const bool within = stream.data.PieceOf(position) + 1 == stream.data.Pieces().size();
        const std::uint64_t end = within ? position - piece.begin + piece.from : 0;
        const std::uint64_t count = std::min<std::uint64_t>(end, kMarkBytes);
        file->markBytes =
            file->raw->TryReadAt(end - count, file->mark.data(), static_cast<std::size_t>(count),
                                 static_cast<std::size_t>(count));
        file->markEnd = end - count + file->markBytes;
    }
}

// Files that are no longer the log's, and have come to rest.
void LogFollower::LetGo(Log& log) {
    const Clock::time_point now = Clock::now();
    std::erase_if(log.files,
                  [&](const auto& file) { return !file->listed && now - file->grown > kPatience; });
    const auto isFollowed = [&](const auto& raw) {
        return std::ranges::any_of(log.files, [&](const auto& file) { return file->raw == raw; });
    };
    // Streams that nothing will come to.
    std::erase_if(log.streams, [&](const auto& stream) {
        const bool ended = std::ranges::none_of(
            log.files, [&](const auto& file) { return file->stream == stream.get(); });
        if (ended) {
            std::ranges::move(stream->data.PlacesAt(stream->walker.Position()),
                              std::back_inserter(log.places));
        }
        return ended;
    });
    std::erase_if(log.places, [&](const FilePlace& place) {
        return !place.source->IsStream() && !isFollowed(place.source->Raw());
    });
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
