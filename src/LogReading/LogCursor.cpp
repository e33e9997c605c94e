#include "LogReading/LogCursor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>

#include "LogReading/LogFiles.h"
#include "LogReading/LogListing.h"
#include "Support/ValidationException.h"

namespace {

constexpr std::string_view kFirstLine = "zynlog-cat cursor 1";
constexpr std::uint64_t kMarkBytes = 4096;
// Some 300 bytes for each of a million files.
constexpr std::uint64_t kLongestCursor = std::uint64_t{300} << 20U;

std::uint64_t SumOf(std::string_view bytes) noexcept {
    std::uint64_t sum = 0xCBF29CE484222325;
    for (const char byte : bytes) {
        sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    }
    return sum;
}

std::string NameOf(const std::string& path) {
    return std::string(PlainName(std::string_view(path).substr(path.rfind('/') + 1)));
}

// A line holds one name.
std::string Escaped(std::string_view name) {
    std::string text;
    for (const char character : name) {
        text += character == '%' ? "%25" : character == '\n' ? "%0A" : std::string(1, character);
    }
    return text;
}

std::string Unescaped(std::string_view text) {
    std::string name;
    while (!text.empty()) {
        const bool percent = text.starts_with("%25");
        const bool escaped = percent || text.starts_with("%0A");
        name += percent ? '%' : escaped ? '\n' : text.front();
        text.remove_prefix(escaped ? 3 : 1);
    }
    return name;
}

// The bytes before an offset.
std::optional<std::uint64_t> MarkOf(ByteSource& source, std::uint64_t offset,
                                    std::uint64_t markBytes) {
    if (markBytes > kMarkBytes || markBytes > offset) {
        return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(markBytes), '\0');
    const std::size_t count =
        source.ReadAt(offset - markBytes, bytes.data(), bytes.size(), bytes.size(), false);
    return count == bytes.size() ? std::optional(SumOf(bytes)) : std::nullopt;
}

// A cursor of some run is a file of its own: what it points to is replaced.
std::string Resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                           &std::free);
    return real ? real.get() : path;
}

}  // namespace

std::optional<LogCursor> LogCursor::Load(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 && errno == ENOENT) {
        return std::nullopt;
    }
    RawFile file(path);
    std::optional<LogCursor> cursor;
    if (file.IsRegular() && file.Size() <= kLongestCursor) {
        std::string text(static_cast<std::size_t>(file.Size()), '\0');
        text.resize(file.TryReadAt(0, text.data(), text.size(), text.size()));
        cursor = Parse(text);
    }
    if (!cursor) {
        throw NoCursorFile(path + ": is not a cursor file");
    }
    return cursor;
}

// The sum in the last line stands for all before it.
std::optional<LogCursor> LogCursor::Parse(const std::string& text) {
    const std::size_t end = text.rfind("end ");
    if (end == std::string::npos ||
        text.substr(end) != "end " + std::to_string(SumOf(text.substr(0, end))) + "\n") {
        return std::nullopt;
    }
    std::istringstream lines(text.substr(0, end));
    std::string line;
    LogCursor cursor;
    if (!std::getline(lines, line) || line != kFirstLine || !(lines >> cursor.last_)) {
        return std::nullopt;
    }
    Entry entry;
    while (lines >> entry.offset >> entry.identity.device >> entry.identity.inode >>
           entry.markBytes >> entry.mark) {
        lines.get();
        std::getline(lines, line);
        entry.name = Unescaped(line);
        cursor.entries_.push_back(entry);
    }
    return cursor.last_ <= cursor.entries_.size() ? std::optional(cursor) : std::nullopt;
}

std::string LogCursor::Text() const {
    std::ostringstream text;
    text << kFirstLine << '\n' << last_ << '\n';
    for (const Entry& entry : entries_) {
        text << entry.offset << ' ' << entry.identity.device << ' ' << entry.identity.inode << ' '
             << entry.markBytes << ' ' << entry.mark << ' ' << Escaped(entry.name) << '\n';
    }
    const std::string lines = text.str();
    return lines + "end " + std::to_string(SumOf(lines)) + "\n";
}

LogCursor LogCursor::At(const std::vector<FilePlace>& places, const LogCursor& before) {
    LogCursor cursor;
    for (const FilePlace& place : places) {
        Entry entry;
        entry.offset = place.offset;
        entry.name = NameOf(place.path);
        entry.identity = place.source->Raw()->Identity();
        entry.source = place.source;
        const auto known = std::ranges::find_if(before.entries_, [&](const Entry& old) {
            return old.source == place.source && old.offset == entry.offset;
        });
        if (known != before.entries_.end()) {
            entry.markBytes = known->markBytes;
            entry.mark = known->mark;
        } else {
            entry.markBytes = std::min(entry.offset, kMarkBytes);
            const std::shared_ptr<ByteSource> source = place.source->Afresh();
            const auto mark = MarkOf(*source, entry.offset, entry.markBytes);
            // Of a file that has shrunk since nothing is known.
            entry.markBytes = mark ? entry.markBytes : std::numeric_limits<std::uint32_t>::max();
            entry.mark = mark.value_or(0);
        }
        cursor.entries_.push_back(std::move(entry));
    }
    cursor.last_ = cursor.entries_.size();
    for (std::size_t index = 0; index < cursor.entries_.size(); ++index) {
        const bool read = cursor.entries_[index].offset > kLogHeaderBytes;
        const bool none = cursor.last_ == cursor.entries_.size();
        // In the order of their names, as they are read.
        if (read && (none || cursor.entries_[cursor.last_].name <= cursor.entries_[index].name)) {
            cursor.last_ = index;
        }
    }
    return cursor;
}

bool LogCursor::Has(const FilePlace& file, const Entry& entry) {
    const std::shared_ptr<ByteSource> source = file.source->Afresh();
    return MarkOf(*source, entry.offset, entry.markBytes) == std::optional(entry.mark);
}

bool LogCursor::Find(std::vector<FilePlace>& files) const {
    constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
    std::vector<std::size_t> entryOf(files.size(), kNone);
    std::vector<bool> found(entries_.size(), false);
    const auto match = [&](auto&& fits) {
        for (std::size_t file = 0; file < files.size(); ++file) {
            for (std::size_t index = 0; index < entries_.size() && entryOf[file] == kNone;
                 ++index) {
                if (!found[index] && fits(files[file], entries_[index]) &&
                    Has(files[file], entries_[index])) {
                    entryOf[file] = index;
                    found[index] = true;
                }
            }
        }
    };
    match([](const FilePlace& file, const Entry& entry) {
        return file.source->Raw()->Identity() == entry.identity;
    });
    match(
        [](const FilePlace& file, const Entry& entry) { return NameOf(file.path) == entry.name; });
    // Neither the file nor its name is the same: only the bytes that were read can identify it.
    match([](const FilePlace& /*file*/, const Entry& entry) {
        return entry.offset > kLogHeaderBytes;
    });
    if (last_ < entries_.size() && !found[last_]) {
        return false;
    }
    for (std::size_t file = 0; file < files.size(); ++file) {
        if (entryOf[file] != kNone) {
            files[file].offset = entries_[entryOf[file]].offset;
        }
    }
    return true;
}

void LogCursor::Store(const std::string& path) const {
    const std::string target = Resolved(path);
    // What an earlier run left when it was killed goes.
    const std::string fresh = target + ".zynlog-cat-new";
    unlink(fresh.c_str());
    FileDescriptor file(
        open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    ZYN_CHECK_OS_CALL(file.IsOpen(), "Failed to write cursor file");
    const std::string text = Text();
    std::string_view left = text;
    bool written = true;
    while (written && !left.empty()) {
        const ssize_t count = write(file.Get(), left.data(), left.size());
        written = count > 0 || (count == -1 && errno == EINTR);
        left.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    written = written && fsync(file.Get()) == 0 && rename(fresh.c_str(), target.c_str()) == 0;
    if (!written) {
        const int error = errno;
        unlink(fresh.c_str());
        errno = error;
    }
    ZYN_CHECK_OS_CALL(written, "Failed to write cursor file");
}
