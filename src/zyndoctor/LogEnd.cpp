#include "zyndoctor/LogEnd.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

#include "LogReading/LogFiles.h"
#include "Support/FileDescriptor.h"
#include "TraceData/BlockCursor.h"
#include "TraceData/Damage.h"

namespace {

constexpr std::size_t kFilesBefore = 8;

// The data of several files as one stream that can be stepped over.
class SteppingStream {
  public:
    // Throws std::system_error for a file that cannot be opened.
    explicit SteppingStream(std::span<const std::string> paths) {
        for (const std::string& path : paths) {
            FileDescriptor file = OpenForReading(path);
            struct stat status {};
            if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0 ||
                status.st_size < static_cast<off_t>(kLogHeaderBytes)) {
                throw std::system_error(errno, std::generic_category());
            }
            const auto bytes = static_cast<std::uint64_t>(status.st_size) - kLogHeaderBytes;
            parts_.push_back({&path, std::move(file), total_});
            total_ += bytes;
        }
    }

    [[nodiscard]] std::uint64_t BytesRead() const noexcept { return position_; }
    [[nodiscard]] std::uint64_t TotalBytes() const noexcept { return total_; }
    [[nodiscard]] std::uint64_t Left() const noexcept { return total_ - position_; }

    // Both: count is at most Left(). Throw std::system_error when the files have changed.
    void read(char* buffer, std::uint32_t count) {
        while (count > 0) {
            const Part& part = PartAt(position_);
            const auto offset = static_cast<off_t>(OffsetIn(part, position_));
            const std::size_t wanted =
                static_cast<std::size_t>(std::min<std::uint64_t>(count, EndOf(part) - position_));
            const ssize_t got = ::pread(part.file.Get(), buffer, wanted, offset);
            if (got == -1 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                throw std::system_error(errno, std::generic_category());
            }
            buffer += got;
            count -= static_cast<std::uint32_t>(got);
            position_ += static_cast<std::uint64_t>(got);
        }
    }
    const char* View(std::uint32_t count) {
        if (count > view_.size()) {
            return nullptr;
        }
        read(view_.data(), count);
        return view_.data();
    }

    // position is at most TotalBytes().
    void StepTo(std::uint64_t position) noexcept { position_ = position; }

    [[nodiscard]] const std::string& FileAt(std::uint64_t position) const {
        return *PartAt(position).path;
    }
    [[nodiscard]] std::uint64_t OffsetAt(std::uint64_t position) const {
        return OffsetIn(PartAt(position), position);
    }

  private:
    struct Part {
        const std::string* path;
        FileDescriptor file;
        std::uint64_t begin;  // in the stream
    };

    // The last part that begins at the position or before it: files without data hold none.
    [[nodiscard]] const Part& PartAt(std::uint64_t position) const {
        const auto next = std::upper_bound(
            parts_.begin(), parts_.end(), position,
            [](std::uint64_t value, const Part& part) { return value < part.begin; });
        return *std::prev(next);
    }
    [[nodiscard]] std::uint64_t EndOf(const Part& part) const {
        const Part* const next = &part + 1;
        return next == parts_.data() + parts_.size() ? total_ : next->begin;
    }
    static std::uint64_t OffsetIn(const Part& part, std::uint64_t position) noexcept {
        return position - part.begin + kLogHeaderBytes;
    }

    std::vector<Part> parts_;
    std::uint64_t total_ = 0;
    std::uint64_t position_ = 0;
    std::array<char, kBlockHeaderPayload + kReadSlack> view_{};
};

bool OnlyZerosAhead(SteppingStream& stream) {
    std::array<char, 4096> bytes{};
    const auto count =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes.size(), stream.Left()));
    stream.read(bytes.data(), count);
    return std::all_of(bytes.begin(), bytes.begin() + count,
                       [](char byte) { return byte == '\0'; });
}

// What is wrong with the block at `begin` of which not even the header can be read.
LogEnd::Kind KindOfDamage(Damage damage, SteppingStream& stream, std::uint64_t begin) {
    stream.StepTo(begin);
    if (OnlyZerosAhead(stream)) {
        return LogEnd::Kind::kZeros;
    }
    return damage == Damage::kCutOff ? LogEnd::Kind::kUnfinished : LogEnd::Kind::kDamaged;
}

struct Walked {
    LogEnd end;
    bool failedAtOnce = false;  // no block header begins the first file
};

// The blocks of these files.
Walked Walk(std::span<const std::string> paths) {
    SteppingStream stream(paths);
    BlockCursor cursor;
    LogEnd end{LogEnd::Kind::kComplete, stream.FileAt(0), stream.OffsetAt(0), 0};
    for (std::size_t blocks = 0; stream.Left() != 0; ++blocks) {
        const std::uint64_t begin = stream.BytesRead();
        end.file = stream.FileAt(begin);
        end.offset = stream.OffsetAt(begin);
        if (blocks == kMaxWalkedBlocks) {
            end.kind = LogEnd::Kind::kTooLong;
            return {end};
        }
        const Damage damage = cursor.ReadHeader(stream);
        if (damage != Damage::kNone) {
            end.kind = KindOfDamage(damage, stream, begin);
            return {end, begin == 0};
        }
        if (cursor.Header().dataSize > stream.Left()) {
            end.kind = LogEnd::Kind::kUnfinished;
            end.missing = cursor.Header().dataSize - stream.Left();
            return {end};
        }
        stream.StepTo(stream.BytesRead() + cursor.Header().dataSize);
    }
    return {end};
}

}  // namespace

LogEnd FindLogEnd(std::span<const std::string> paths) {
    try {
        const Walked alone = Walk(paths.last(1));
        if (!alone.failedAtOnce) {
            return alone.end;
        }
        // The file may begin within a block: from one that does not, the sizes lead into it.
        for (std::size_t count = 2; count <= std::min(paths.size(), kFilesBefore + 1); ++count) {
            const Walked some = Walk(paths.last(count));
            if (!some.failedAtOnce) {
                return some.end;
            }
        }
        return alone.end;
    } catch (const std::system_error&) {
        // Rotated away or cut while it was looked at.
        return {LogEnd::Kind::kUnreadable, paths.back(), 0, 0};
    }
}
