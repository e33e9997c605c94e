// The shape of a record: the heads of its packets and where the next one begins behind each. The
// records of a writer mostly have one shape, or a few; one that has a known shape is taken apart by
// comparing heads, without looking at the type of each packet. No order of packets is known
// beforehand.
#ifndef ZYN_TRACEDATA_RECORDSHAPE_H
#define ZYN_TRACEDATA_RECORDSHAPE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "MemoryStream/MemoryStream.h"
#include "Support/LoadStore.h"
#include "TraceData/DecodedRecord.h"

// Learned from one record; takes others apart. One thread. Not copied: it points into itself.
class RecordShape {
  public:
    RecordShape() = default;
    RecordShape(const RecordShape&) = delete;
    RecordShape& operator=(const RecordShape&) = delete;

    // Learns the shape of an undamaged record. False, and then nothing matches, for one of more or
    // larger packets than a shape holds, and for a time of another length than 12 bytes.
    bool Learn(const char* data, std::uint32_t length) noexcept;

    // Takes a record of this shape apart: Record() then holds its values. False for a record of any
    // other shape, or a damaged one; Record() is then of no use. kReadSlack bytes behind the record
    // can be read.
    bool Match(const char* data, std::uint32_t length) noexcept {
        std::uint64_t at = 0;
        const Text* text = texts_.data();
        for (const Group* group = groups_.data(); group != end_; ++group) {
            if (!group->heads.Fit(data + at) ||
                !Take(data, length, at, group->place, group->headBytes, group->lengthMask))
                [[unlikely]] {
                return false;
            }
            for (const Text* const end = group->end; text != end; ++text) {
                if (!text->HeadFits(data + at) || !Take(data, length, at, text->place,
                                                        text->headBytes, UINT32_MAX)) [[unlikely]] {
                    return false;
                }
            }
        }
        if (at != length) [[unlikely]] {
            return false;
        }
        TakeNumbers();
        record_.data = data;
        record_.length = length;
        return true;
    }

    [[nodiscard]] const DecodedRecord& Record() const noexcept { return record_; }

  private:
    static constexpr std::size_t kGroups = 6;
    static constexpr std::size_t kTexts = 12;

    // What lies behind heads: a text whose length, the heads' last word, differs from record to
    // record.
    struct Text {
        [[nodiscard]] bool HeadFits(const char* data) const noexcept {
            return (LoadLittleEndian<std::uint64_t>(data) & mask) == head;
        }

        std::uint64_t mask = 0;
        std::uint64_t head = 0;
        std::string_view* place = nullptr;
        std::uint32_t headBytes = 0;
    };

    // The heads of several packets, with what lies between them, in one comparison.
    struct Heads {
        static constexpr std::size_t kBytes = 48;
        static_assert(kBytes <= kReadSlack, "a comparison may look behind the record");
        using Bytes = std::array<char, kBytes>;

        [[nodiscard]] bool Fit(const char* data) const noexcept;

        alignas(16) Bytes mask{};
        alignas(16) Bytes heads{};
    };

    // A packet, or a row of packets of fixed size that may end with the head of a text, and behind
    // it texts with nothing between them.
    struct Group {
        Heads heads;
        std::string_view* place = nullptr;
        std::uint32_t headBytes = 0;
        std::uint32_t lengthMask = 0;  // 0 when no text ends the row
        const Text* end = nullptr;     // of the texts behind it
    };

    // Takes the text behind the heads that begin at a place in the record, and goes on behind it.
    // False for a text that runs past the record.
    static bool Take(const char* data, std::uint32_t length, std::uint64_t& at,
                     std::string_view* place, std::uint32_t headBytes,
                     std::uint32_t lengthMask) noexcept {
        const std::uint64_t begin = at + headBytes;
        const std::uint32_t textLength =
            LoadLittleEndian<std::uint32_t>(data + begin - kPacketLengthBytes) & lengthMask;
        at = begin + textLength;
        if (at > length) [[unlikely]] {
            return false;
        }
        *place = {data + begin, textLength};
        return true;
    }

    // A number lies so many bytes before the text behind its heads.
    struct Number {
        const std::string_view* text = &RecordValues::kNoText;
        std::ptrdiff_t before = 0;

        [[nodiscard]] const char* Get() const noexcept { return text->data() - before; }
    };

    class Learner;

    void TakeNumbers() noexcept {
        RecordValues& values = record_.values;
        const char* const time = time_.Get();
        values.seconds = LoadLittleEndian<std::uint32_t>(time);
        values.milliseconds = LoadLittleEndian<std::uint16_t>(time + sizeof values.seconds);
        values.thread = LoadLittleEndian<std::uint32_t>(thread_.Get());
        values.process = LoadLittleEndian<std::uint32_t>(process_.Get());
    }
    void Forget() noexcept;

    std::array<Group, kGroups> groups_;
    const Group* end_ = groups_.data();
    std::array<Text, kTexts> texts_;
    Number time_;
    Number thread_;
    Number process_;
    DecodedRecord record_;
    // Of packets that mean nothing, or that a later one of the record replaces.
    std::array<std::string_view, kGroups + kTexts> ignored_;
};

#ifdef __SSE2__

inline bool RecordShape::Heads::Fit(const char* data) const noexcept {
    const auto equal = [this, data](std::size_t at) {
        const auto load = [at](const char* bytes) {
            return _mm_load_si128(reinterpret_cast<const __m128i*>(bytes + at));
        };
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
        return _mm_cmpeq_epi8(_mm_and_si128(bytes, load(mask.data())), load(heads.data()));
    };
    static_assert(kBytes == 3 * sizeof(__m128i));
    const __m128i all = _mm_and_si128(_mm_and_si128(equal(0), equal(16)), equal(32));
    return _mm_movemask_epi8(all) == 0xFFFF;
}

#else

inline bool RecordShape::Heads::Fit(const char* data) const noexcept {
    std::uint64_t differing = 0;
    for (std::size_t at = 0; at < kBytes; at += sizeof differing) {
        differing |= (LoadLittleEndian<std::uint64_t>(data + at) &
                      LoadLittleEndian<std::uint64_t>(mask.data() + at)) ^
                     LoadLittleEndian<std::uint64_t>(heads.data() + at);
    }
    return differing == 0;
}

#endif

#endif
