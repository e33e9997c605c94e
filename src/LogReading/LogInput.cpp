#include "LogReading/LogInput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>
#include <vector>

#include "LogReading/BlockSearch.h"
#include "LogReading/LogFiles.h"
#include "LogReading/LogListing.h"
#include "MultiFileStream/DescriptorBudget.h"
#include "Support/FileDescriptor.h"
#include "Support/ValidationException.h"

namespace {

const char* TextOf(DecoderEnd end) noexcept {
    return end == DecoderEnd::kCut ? "the compressed data ends early"
                                   : "the compressed data is damaged";
}

InputIssueKind KindOf(DecoderEnd end) noexcept {
    return end == DecoderEnd::kCut ? InputIssueKind::kCompressedCut
                                   : InputIssueKind::kCompressedDamaged;
}

// Where the data of a file begins whose first bytes, up to kLogHeaderBytes, are these; nothing for
// a file that is not to be read.
std::optional<std::uint64_t> DataBegin(std::string_view bytes, bool damagedHeaders) {
    const std::string& header = ZynBinaryFileOutputSupport::GetHeader();
    if (bytes == header) {
        return kLogHeaderBytes;
    }
    if (!damagedHeaders || bytes.empty()) {
        return std::nullopt;
    }
    std::size_t equal = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        equal += bytes[i] == header[i] ? 1U : 0U;
    }
    return 2 * equal >= kLogHeaderBytes ? kLogHeaderBytes : 0;
}

void ReportForeign(InputListener& listener, const std::string& path, std::size_t size) {
    if (size < kLogHeaderBytes) {
        listener.OnIssue(
            {InputIssueKind::kTooSmall, path, "is smaller than the header of a log file"});
    } else {
        listener.OnIssue(
            {InputIssueKind::kForeign, path, "does not begin with the header of a log file"});
    }
}

// The same, and says when the header is not what it should be.
std::optional<std::uint64_t> CheckHeader(std::string_view bytes, const std::string& path,
                                         InputListener& listener, bool damagedHeaders) {
    if (bytes != ZynBinaryFileOutputSupport::GetHeader()) {
        ReportForeign(listener, path, bytes.size());
    }
    return DataBegin(bytes, damagedHeaders);
}

// Reads a compressed file from its beginning on.
std::unique_ptr<StreamDecoder> DecoderOf(const std::shared_ptr<RawFile>& file,
                                         Compression compression) {
    return MakeStreamDecoder(
        compression, [file, position = std::uint64_t{0}](char* buffer, std::size_t room) mutable {
            const std::size_t count = file->TryReadAt(position, buffer, 1, room);
            position += count;
            return count;
        });
}

std::size_t DecodeFully(StreamDecoder& decoder, char* buffer, std::size_t count) {
    std::size_t done = 0;
    while (done < count) {
        const std::size_t got = decoder.Read(buffer + done, count - done);
        if (got == 0) {
            break;
        }
        done += got;
    }
    return done;
}

// The decoder that looks for the header goes again: with many files there would be many of them.
OpenedLogFile OpenCompressed(const std::shared_ptr<RawFile>& file, Compression compression,
                             InputListener& listener, bool damagedHeaders) {
    std::array<char, kLogHeaderBytes> header{};
    const std::string& path = file->Path();
    std::optional<std::uint64_t> begin;
    {
        const std::unique_ptr<StreamDecoder> decoder = DecoderOf(file, compression);
        const std::size_t count = DecodeFully(*decoder, header.data(), header.size());
        if (count < header.size() && decoder->End() != DecoderEnd::kWhole) {
            listener.OnIssue({KindOf(decoder->End()), path, TextOf(decoder->End())});
            return {};
        }
        begin = CheckHeader({header.data(), count}, path, listener, damagedHeaders);
    }
    if (!begin) {
        return {};
    }
    auto source = std::make_shared<StreamSource>(
        file, [file, compression] { return DecoderOf(file, compression); },
        [&listener, path](DecoderEnd end) {
            listener.OnIssue({KindOf(end), path, TextOf(end)});
        });
    return {std::move(source), file, compression, *begin};
}

// Bytes that were read ahead, then what the descriptor gives.
class PipeReader {
  public:
    explicit PipeReader(FileDescriptor own, int descriptor)
        : own_(std::move(own)), descriptor_(descriptor) {}

    std::size_t Read(char* buffer, std::size_t room) {
        if (taken_ < ahead_.size()) {
            const std::size_t count = std::min(room, ahead_.size() - taken_);
            std::memcpy(buffer, ahead_.data() + taken_, count);
            taken_ += count;
            return count;
        }
        ssize_t got = 0;
        do {
            errno = 0;
            got = read(descriptor_, buffer, room);
        } while (got == -1 && errno == EINTR);
        ZYN_CHECK_OS_CALL(got >= 0, "Failed to read from file");
        return static_cast<std::size_t>(got);
    }

    // The first bytes, which stay to be read.
    std::string_view LookAhead(std::size_t count) {
        std::string ahead(count, '\0');
        std::size_t done = 0;
        while (done < count) {
            const std::size_t got = Read(ahead.data() + done, count - done);
            if (got == 0) {
                break;
            }
            done += got;
        }
        ahead.resize(done);
        ahead_ = std::move(ahead);
        return ahead_;
    }

  private:
    FileDescriptor own_;
    int descriptor_;
    std::string ahead_;
    std::size_t taken_ = 0;
};

void AddPipe(LogData& data, const std::string& path, FileDescriptor own, int descriptor,
             InputListener& listener, bool damagedHeaders) {
    const auto pipe = std::make_shared<PipeReader>(std::move(own), descriptor);
    const Compression compression = RecognizeCompression(pipe->LookAhead(kCompressionMarkBytes));
    // What reads it knows whether it is all: with the header the first issue is said.
    auto source = std::make_shared<StreamSource>(
        nullptr,
        [pipe, compression] {
            return MakeStreamDecoder(compression, [pipe](char* buffer, std::size_t room) {
                return pipe->Read(buffer, room);
            });
        },
        [&listener, path](DecoderEnd end) {
            listener.OnIssue({KindOf(end), path, TextOf(end)});
        });
    std::array<char, kLogHeaderBytes> header{};
    const std::size_t count = source->ReadAt(0, header.data(), header.size(), header.size(), false);
    const std::optional<std::uint64_t> begin =
        CheckHeader({header.data(), count}, path, listener, damagedHeaders);
    if (begin) {
        data.Add(path, std::move(source), *begin);
    }
}

// So that one slash makes the path of a file of it.
std::string WithoutSlashes(std::string directory) {
    while (directory.ends_with('/')) {
        directory.pop_back();
    }
    return directory;
}

// Whether the data of a file begins with a block header; nothing for a file without data.
std::optional<bool> BeginsWithBlock(const std::string& path) {
    class Nobody final : public InputListener {
        void OnIssue(const InputIssue& /*issue*/) override {}
    };
    Nobody nobody;
    const OpenedLogFile file = OpenLogFile(path, nobody);
    if (!file.source) {
        return std::nullopt;
    }
    std::array<char, kLongestBlockHeader> bytes{};
    const std::size_t count =
        file.source->ReadAt(kLogHeaderBytes, bytes.data(), bytes.size(), bytes.size(), false);
    if (count == 0) {
        return std::nullopt;
    }
    return ReadBlockHeader(std::span(bytes).first(count)).shape == HeaderShape::kWhole;
}

// How many files at the head of the list have no records since a time.
std::size_t CountOld(const std::string& directory, const std::vector<std::string>& names,
                     std::int64_t since) {
    const auto isOld = [&](const std::string& name) {
        struct stat status {};
        return stat((directory + "/" + name).c_str(), &status) == 0 &&
               std::int64_t{status.st_mtime} < since - kSinceMarginSeconds;
    };
    const auto firstYoung = std::find_if_not(names.begin(), names.end(), isOld);
    auto count = static_cast<std::size_t>(firstYoung - names.begin());
    for (; count != 0; --count) {
        std::optional<bool> begins;
        for (std::size_t behind = count; behind < names.size() && !begins; ++behind) {
            begins = BeginsWithBlock(directory + "/" + names[behind]);
        }
        if (begins.value_or(false)) {
            break;
        }
    }
    return count;
}

void AddDirectory(LogData& data, const std::string& path, InputListener& listener,
                  const LogInputOptions& options) {
    std::vector<std::string> names = ListLogFiles(path.empty() ? "/" : path, listener);
    if (options.since) {
        const std::size_t old = CountOld(path, names, *options.since);
        names.erase(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(old));
    }
    DescriptorBudget budget(names.size());
    for (const std::string& name : names) {
        std::string file = path;
        file.append(1, '/').append(name);
        OpenedLogFile opened = OpenLogFile(file, listener, options.damagedHeaders);
        if (!opened.source) {
            continue;
        }
        if (!budget.Take()) {
            opened.source->MayPark();
        }
        data.Add(std::move(file), std::move(opened.source), opened.dataBegin);
    }
}

}  // namespace

OpenedLogFile OpenLogFile(const std::string& path, InputListener& listener, bool damagedHeaders) {
    try {
        auto file = std::make_shared<RawFile>(path);
        if (!file->IsRegular()) {
            listener.OnIssue({InputIssueKind::kUnreadable, path, "is not a regular file"});
            return {};
        }
        std::array<char, kLogHeaderBytes> header{};
        const std::size_t count = file->TryReadAt(0, header.data(), header.size(), header.size());
        const Compression compression = RecognizeCompression({header.data(), count});
        if (compression != Compression::kNone) {
            return OpenCompressed(file, compression, listener, damagedHeaders);
        }
        const std::optional<std::uint64_t> begin =
            CheckHeader({header.data(), count}, path, listener, damagedHeaders);
        if (!begin) {
            return {};
        }
        return {std::make_shared<PlainSource>(file), file, compression, *begin};
    } catch (const std::exception& failure) {
        listener.OnIssue({InputIssueKind::kUnreadable, path, failure.what()});
        return {};
    }
}

std::unique_ptr<LogData> OpenLog(const std::string& path, InputListener& listener,
                                 const LogInputOptions& options) {
    auto data = std::make_unique<LogData>();
    struct stat status {};
    if (path == "-") {
        AddPipe(*data, path, FileDescriptor(), STDIN_FILENO, listener, options.damagedHeaders);
    } else if (stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    } else if (S_ISDIR(status.st_mode)) {
        if (access(path.c_str(), R_OK | X_OK) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        AddDirectory(*data, WithoutSlashes(path), listener, options);
    } else if (S_ISREG(status.st_mode)) {
        OpenedLogFile opened = OpenLogFile(path, listener, options.damagedHeaders);
        if (opened.source) {
            data->Add(path, std::move(opened.source), opened.dataBegin);
        }
    } else {
        FileDescriptor pipe(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!pipe.IsOpen()) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        const int descriptor = pipe.Get();
        AddPipe(*data, path, std::move(pipe), descriptor, listener, options.damagedHeaders);
    }
    if (options.readableTwice && !data->Empty()) {
        data->Hold(0);
    }
    return data;
}
