#include "LogReading/ByteSource.h"

#include <algorithm>

#include "Support/ValidationException.h"

namespace {

constexpr std::size_t kStepBytes = std::size_t{64} * 1024;

}  // namespace

std::size_t PlainSource::ReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast,
                                std::size_t atMost, bool /*keep*/) {
    if (offset >= size_) {
        return 0;
    }
    const std::uint64_t left = size_ - offset;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, atLeast));
    const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(left, atMost));
    return File().ReadAt(offset, buffer, wanted, room);
}

// Decodes up to room bytes; 0 at the end.
std::size_t StreamSource::Decode(char* buffer, std::size_t room) {
    if (ended_) {
        return 0;
    }
    if (!decoder_) {
        decoder_ = open_();
    }
    const std::size_t count = decoder_->Read(buffer, room);
    if (count == 0) {
        const DecoderEnd end = decoder_->End();
        ended_ = true;
        decoder_.reset();
        if (end != DecoderEnd::kWhole) {
            onDamage_(end);
        }
    }
    return count;
}

// Decodes until `end` bytes have come out, or all.
void StreamSource::DecodeTo(std::uint64_t end, bool keep) {
    const std::unique_ptr<char[]> buffer(new char[kStepBytes]);
    while (decoded_ < end) {
        // What is passed over must end exactly where the reading goes on.
        const auto room =
            keep ? kStepBytes
                 : static_cast<std::size_t>(std::min<std::uint64_t>(end - decoded_, kStepBytes));
        const std::size_t count = Decode(buffer.get(), room);
        if (count == 0) {
            return;
        }
        if (keep) {
            kept_.WriteAt(decoded_ - keptFrom_, buffer.get(), count);
        } else {
            keptFrom_ += count;
        }
        decoded_ += count;
    }
}

std::size_t StreamSource::ReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast,
                                 std::size_t atMost, bool keep) {
    if (keep) {
        Reaches(offset + atLeast);
    } else if (offset >= decoded_) {
        // Nobody comes back to what is kept.
        kept_.Clear();
        keptFrom_ = decoded_;
        DecodeTo(offset, false);
        std::size_t done = 0;
        while (done < atLeast) {
            const std::size_t count = Decode(buffer + done, atMost - done);
            if (count == 0) {
                break;
            }
            done += count;
        }
        decoded_ += done;
        keptFrom_ = decoded_;
        return done;
    }
    if (offset >= decoded_) {
        return 0;
    }
    ZYN_CHECK_LOGIC(offset >= keptFrom_, "Bytes that were not kept");
    const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(decoded_ - offset, atMost));
    kept_.ReadAt(offset - keptFrom_, buffer, room);
    return room < atLeast && !keep
               ? room + ReadAt(decoded_, buffer + room, atLeast - room, atMost - room, keep)
               : room;
}

bool StreamSource::Reaches(std::uint64_t end) {
    if (end > decoded_) {
        DecodeTo(end, true);
    }
    return end <= decoded_;
}

void StreamSource::Keep(std::uint64_t offset, const char* bytes, std::size_t count) {
    if (Keeps() || count == 0) {
        // Kept already: what is read from there on is kept until all of it was read.
        return;
    }
    keptFrom_ = offset;
    kept_.WriteAt(0, bytes, count);
}
