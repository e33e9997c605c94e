#include "LogReading/FollowedLog.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <ranges>
#include <utility>

#include "LogReading/LogFiles.h"

bool FollowedStream::HasShrunk() const {
    return std::ranges::any_of(
        data.Pieces(), [](const LogData::Piece& piece) { return piece.source->HasShrunk(); });
}

bool FollowedFile::BeganAnew() {
    std::array<char, kMarkBytes> now{};
    const std::size_t count = raw->TryReadAt(markEnd - markBytes, now.data(), markBytes, markBytes);
    return count != markBytes ||
           !std::equal(now.begin(), now.begin() + static_cast<std::ptrdiff_t>(count), mark.begin());
}

void FollowedLog::AddStream(FollowedFile& file, std::uint64_t from) {
    auto stream = std::make_unique<FollowedStream>();
    stream->data.Add(file.raw->Path(), file.source, from);
    file.stream = stream.get();
    streams.push_back(std::move(stream));
}

void FollowedLog::Restart(FollowedFile& file, std::uint64_t from) {
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
    AddStream(file, begin);
}

void FollowedLog::Grow(FollowedFile& file) {
    const std::uint64_t size = file.raw->Size();
    if (file.stream == nullptr) {
        // Others have come behind it: what it gets now is for itself.
        file.source = std::make_shared<PlainSource>(file.raw);
        AddStream(file, file.taken);
    }
    file.source->SetSize(size);
    file.taken = size;
    file.stream->rests = false;
}

void FollowedLog::NoteMark(const FollowedStream& stream) {
    const std::uint64_t position = stream.walker.Position();
    for (const auto& file : files) {
        if (file->stream != &stream) {
            continue;
        }
        const LogData::Piece& piece = stream.data.Pieces().back();
        const bool within = stream.data.PieceOf(position) + 1 == stream.data.Pieces().size();
        const std::uint64_t end = within ? position - piece.begin + piece.from : 0;
        const std::uint64_t count = std::min<std::uint64_t>(end, FollowedFile::kMarkBytes);
        file->markBytes =
            file->raw->TryReadAt(end - count, file->mark.data(), static_cast<std::size_t>(count),
                                 static_cast<std::size_t>(count));
        file->markEnd = end - count + file->markBytes;
    }
}

void FollowedLog::LetGo(FollowClock::time_point grownBefore) {
    std::erase_if(files,
                  [&](const auto& file) { return !file->listed && file->grown < grownBefore; });
    const auto isFollowed = [&](const auto& raw) {
        return std::ranges::any_of(files, [&](const auto& file) { return file->raw == raw; });
    };
    // Streams that nothing will come to.
    std::erase_if(streams, [&](const auto& stream) {
        const bool ended = std::ranges::none_of(
            files, [&](const auto& file) { return file->stream == stream.get(); });
        if (ended) {
            std::ranges::move(stream->data.PlacesAt(stream->walker.Position()),
                              std::back_inserter(places));
        }
        return ended;
    });
    std::erase_if(places, [&](const FilePlace& place) {
        return !place.source->IsStream() && !isFollowed(place.source->Raw());
    });
}

std::vector<FilePlace> FollowedLog::Places() const {
    // A file may have been read in several streams, of which the last counts.
    std::map<const RawFile*, FilePlace> latest;
    for (const FilePlace& place : places) {
        latest[place.source->Raw().get()] = place;
    }
    for (const auto& stream : streams) {
        for (FilePlace& place : stream->data.PlacesAt(stream->walker.Position())) {
            latest[place.source->Raw().get()] = place;
        }
    }
    std::vector<FilePlace> sorted;
    sorted.reserve(latest.size());
    for (auto& [raw, place] : latest) {
        sorted.push_back(std::move(place));
    }
    std::ranges::sort(sorted, {}, &FilePlace::path);
    return sorted;
}
