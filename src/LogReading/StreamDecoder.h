// Takes compressed data apart as it is read. Recognised by its first bytes, never by a name.
#ifndef ZYN_LOGREADING_STREAMDECODER_H
#define ZYN_LOGREADING_STREAMDECODER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

enum class Compression : std::uint8_t { kNone, kGzip, kZstd };

// As many first bytes as RecognizeCompression needs.
inline constexpr std::size_t kCompressionMarkBytes = 4;

[[nodiscard]] Compression RecognizeCompression(std::string_view firstBytes) noexcept;

// How compressed data ended.
enum class DecoderEnd : std::uint8_t { kWhole, kCut, kDamaged };

// Reads up to room bytes of compressed data: 0 at its end. Failures are thrown.
using RawRead = std::function<std::size_t(char* buffer, std::size_t room)>;

class StreamDecoder {
  public:
    StreamDecoder() = default;
    StreamDecoder(const StreamDecoder&) = delete;
    StreamDecoder& operator=(const StreamDecoder&) = delete;
    virtual ~StreamDecoder() = default;

    // Up to room > 0 bytes, as soon as there are any; 0 at the end, also where damage is the end.
    virtual std::size_t Read(char* buffer, std::size_t room) = 0;
    // Once Read has returned 0.
    [[nodiscard]] virtual DecoderEnd End() const noexcept = 0;
};

// Several members, or frames, are read as one. Memory: some 100 KiB; a zstd frame its window, which
// must not be over 128 MiB: else it counts as damaged. Throws CheckMemoryAllocation "Can not create
// decoder".
[[nodiscard]] std::unique_ptr<StreamDecoder> MakeStreamDecoder(Compression compression,
                                                               RawRead read);

#endif
