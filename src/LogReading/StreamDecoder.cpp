#include "LogReading/StreamDecoder.h"

#include <zlib.h>
#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "Support/ValidationException.h"

namespace {

constexpr std::size_t kInputBytes = std::size_t{64} * 1024;
// 128 MiB.
constexpr int kMostZstdWindowLog = 27;

// Compressed bytes that have been read and not yet been used.
class InputBuffer {
  public:
    explicit InputBuffer(RawRead read) : read_(std::move(read)), buffer_(new char[kInputBytes]) {}

    // Whether there is at least one byte.
    bool Fill() {
        if (begin_ == end_) {
            begin_ = 0;
            end_ = read_(buffer_.get(), kInputBytes);
        }
        return begin_ != end_;
    }
    [[nodiscard]] const char* Data() const noexcept { return buffer_.get() + begin_; }
    [[nodiscard]] std::size_t Size() const noexcept { return end_ - begin_; }
    void Use(std::size_t count) noexcept { begin_ += count; }

  private:
    RawRead read_;
    std::unique_ptr<char[]> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

class PlainDecoder final : public StreamDecoder {
  public:
    explicit PlainDecoder(RawRead read) : read_(std::move(read)) {}
    std::size_t Read(char* buffer, std::size_t room) override { return read_(buffer, room); }
    [[nodiscard]] DecoderEnd End() const noexcept override { return DecoderEnd::kWhole; }

  private:
    RawRead read_;
};

class GzipDecoder final : public StreamDecoder {
  public:
    explicit GzipDecoder(RawRead read) : input_(std::move(read)) {
        constexpr int kGzipOnly = 16;
        ZYN_CHECK_MEMORY_ALLOCATION(inflateInit2(&stream_, MAX_WBITS + kGzipOnly) == Z_OK,
                                    "Can not create decoder");
    }
    GzipDecoder(const GzipDecoder&) = delete;
    GzipDecoder& operator=(const GzipDecoder&) = delete;
    ~GzipDecoder() override { inflateEnd(&stream_); }

    std::size_t Read(char* buffer, std::size_t room) override {
        const auto most =
            static_cast<uInt>(std::min<std::size_t>(room, std::numeric_limits<uInt>::max()));
        stream_.next_out = reinterpret_cast<Bytef*>(buffer);
        stream_.avail_out = most;
        while (!ended_ && stream_.avail_out == most) {
            Step();
        }
        return most - stream_.avail_out;
    }
    [[nodiscard]] DecoderEnd End() const noexcept override { return end_; }

  private:
    void Step() {
        if (!input_.Fill()) {
            Finish(betweenMembers_ ? DecoderEnd::kWhole : DecoderEnd::kCut);
            return;
        }
        if (betweenMembers_ && !BeginMember()) {
            return;
        }
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input_.Data()));
        stream_.avail_in = static_cast<uInt>(input_.Size());
        const int result = inflate(&stream_, Z_NO_FLUSH);
        // Its window is made when it is needed first.
        ZYN_CHECK_MEMORY_ALLOCATION(result != Z_MEM_ERROR, "Can not create decoder");
        input_.Use(input_.Size() - stream_.avail_in);
        if (result == Z_STREAM_END) {
            betweenMembers_ = true;
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            Finish(DecoderEnd::kDamaged);
        }
    }

    // What follows a member: another one, or the zeros with which tapes and disks are filled up.
    bool BeginMember() {
        if (*input_.Data() == '\0') {
            input_.Use(1);
            return false;
        }
        betweenMembers_ = false;
        inflateReset(&stream_);
        return true;
    }

    void Finish(DecoderEnd end) noexcept {
        end_ = end;
        ended_ = true;
    }

    InputBuffer input_;
    z_stream stream_{};
    bool betweenMembers_ = false;
    bool ended_ = false;
    DecoderEnd end_ = DecoderEnd::kWhole;
};

struct ZstdCloser {
    void operator()(ZSTD_DCtx* context) const noexcept { ZSTD_freeDCtx(context); }
};

class ZstdDecoder final : public StreamDecoder {
  public:
    explicit ZstdDecoder(RawRead read) : input_(std::move(read)), context_(ZSTD_createDCtx()) {
        ZYN_CHECK_MEMORY_ALLOCATION(context_ != nullptr, "Can not create decoder");
        ZSTD_DCtx_setParameter(context_.get(), ZSTD_d_windowLogMax, kMostZstdWindowLog);
    }

    std::size_t Read(char* buffer, std::size_t room) override {
        ZSTD_outBuffer out{buffer, room, 0};
        while (!ended_ && out.pos == 0) {
            // Bytes may be held back though all of the input was used.
            const bool more = input_.Fill();
            if (!more && betweenFrames_) {
                ended_ = true;
                break;
            }
            ZSTD_inBuffer in{input_.Data(), input_.Size(), 0};
            const std::size_t result = ZSTD_decompressStream(context_.get(), &out, &in);
            input_.Use(in.pos);
            betweenFrames_ = result == 0;
            // Its buffers are allocated when a frame gives their size.
            ZYN_CHECK_MEMORY_ALLOCATION(ZSTD_getErrorCode(result) != ZSTD_error_memory_allocation,
                                        "Can not create decoder");
            if (ZSTD_isError(result) != 0) {
                end_ = DecoderEnd::kDamaged;
                ended_ = true;
            } else if (!more && out.pos == 0) {
                end_ = DecoderEnd::kCut;
                ended_ = true;
            }
        }
        return out.pos;
    }
    [[nodiscard]] DecoderEnd End() const noexcept override { return end_; }

  private:
    InputBuffer input_;
    std::unique_ptr<ZSTD_DCtx, ZstdCloser> context_;
    bool betweenFrames_ = false;
    bool ended_ = false;
    DecoderEnd end_ = DecoderEnd::kWhole;
};

}  // namespace

Compression RecognizeCompression(std::string_view firstBytes) noexcept {
    if (firstBytes.starts_with("\x1F\x8B")) {
        return Compression::kGzip;
    }
    // A frame, or one that is to be skipped, as parallel compressors put before it.
    if (firstBytes.starts_with("\x28\xB5\x2F\xFD") ||
        (firstBytes.size() >= kCompressionMarkBytes && (firstBytes[0] & 0xF0) == 0x50 &&
         firstBytes.substr(1).starts_with("\x2A\x4D\x18"))) {
        return Compression::kZstd;
    }
    return Compression::kNone;
}

std::unique_ptr<StreamDecoder> MakeStreamDecoder(Compression compression, RawRead read) {
    switch (compression) {
        case Compression::kGzip:
            return std::make_unique<GzipDecoder>(std::move(read));
        case Compression::kZstd:
            return std::make_unique<ZstdDecoder>(std::move(read));
        case Compression::kNone:
            break;
    }
    return std::make_unique<PlainDecoder>(std::move(read));
}
