// The bytes of one log file, as uncompressed, whatever they come from.
#ifndef ZYN_LOGREADING_BYTESOURCE_H
#define ZYN_LOGREADING_BYTESOURCE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "LogReading/RawFile.h"
#include "LogReading/StreamDecoder.h"
#include "LogReading/TemporaryFile.h"

// Offsets count from the file's first byte, its header included. Throws CheckOSCall "Failed to read
// from file", what RawFile throws when it is reopened, and what TemporaryFile throws. One thread.
class ByteSource : public std::enable_shared_from_this<ByteSource> {
  public:
    // file: nullptr for a pipe.
    explicit ByteSource(std::shared_ptr<RawFile> file) noexcept : file_(std::move(file)) {}
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    // Reads at least atLeast bytes from an offset on, and no more than atMost: fewer only at the
    // end. With `keep` all that is read for the first time can be read again; else a source that
    // cannot seek discards it.
    virtual std::size_t ReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast,
                               std::size_t atMost, bool keep) = 0;

    // Where the end is, if that is known yet.
    [[nodiscard]] virtual std::optional<std::uint64_t> Size() const noexcept = 0;

    // Whether there are bytes up to an offset; what has to be read for that is kept.
    virtual bool Reaches(std::uint64_t end) = 0;

    // Bytes that were read and not kept are given back, those from `offset` up to the last that was
    // read, so that they can be read again.
    virtual void Keep(std::uint64_t offset, const char* bytes, std::size_t count) = 0;

    // Whether it can only be read on.
    [[nodiscard]] virtual bool IsStream() const noexcept = 0;

    // A source of the same bytes that reads them from the beginning, whatever this one has passed.
    [[nodiscard]] virtual std::shared_ptr<ByteSource> Afresh() = 0;

    // Whether the file has become smaller than it was known to be: why reading has failed.
    virtual bool HasShrunk() { return false; }

    // The file that it reads; nullptr for a pipe.
    [[nodiscard]] const std::shared_ptr<RawFile>& Raw() const noexcept { return file_; }

    // The process is short of descriptors: Park closes the file from now on, until the next
    // reading.
    void MayPark() noexcept {
        mayPark_ = true;
        Park();
    }
    void Park() noexcept {
        if (mayPark_ && file_) {
            file_->Park();
        }
    }

  protected:
    [[nodiscard]] RawFile& File() noexcept { return *file_; }

  private:
    std::shared_ptr<RawFile> file_;
    bool mayPark_ = false;
};

// An uncompressed file that can be read anywhere. Its size is what it was when it was opened, until
// SetSize.
class PlainSource final : public ByteSource {
  public:
    explicit PlainSource(std::shared_ptr<RawFile> file) noexcept
        : ByteSource(std::move(file)), size_(File().Size()) {}

    std::size_t ReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast, std::size_t atMost,
                       bool keep) override;
    [[nodiscard]] std::optional<std::uint64_t> Size() const noexcept override { return size_; }
    bool Reaches(std::uint64_t end) override { return end <= size_; }
    void Keep(std::uint64_t /*offset*/, const char* /*bytes*/, std::size_t /*count*/) override {}
    [[nodiscard]] bool IsStream() const noexcept override { return false; }

    std::shared_ptr<ByteSource> Afresh() override { return shared_from_this(); }
    bool HasShrunk() override {
        File().Refresh();
        return File().Size() < size_;
    }

    // Of a file that is followed.
    void SetSize(std::uint64_t size) noexcept { size_ = size; }

  private:
    std::uint64_t size_;
};

// A compressed file, or a pipe, which can only be read on. What is kept lies in a temporary file,
// which is emptied once all of it was read and `keep` is no longer set.
class StreamSource final : public ByteSource {
  public:
    using Open = std::function<std::unique_ptr<StreamDecoder>()>;
    using OnDamage = std::function<void(DecoderEnd)>;

    // file: that the decoder reads; nullptr for a pipe. open: makes the decoder, at the first
    // reading. onDamage: called once, when what came out is not all.
    StreamSource(std::shared_ptr<RawFile> file, Open open, OnDamage onDamage)
        : ByteSource(std::move(file)), open_(std::move(open)), onDamage_(std::move(onDamage)) {}

    std::size_t ReadAt(std::uint64_t offset, char* buffer, std::size_t atLeast, std::size_t atMost,
                       bool keep) override;
    [[nodiscard]] std::optional<std::uint64_t> Size() const noexcept override {
        return ended_ ? std::optional(decoded_) : std::nullopt;
    }
    bool Reaches(std::uint64_t end) override;
    void Keep(std::uint64_t offset, const char* bytes, std::size_t count) override;
    [[nodiscard]] bool IsStream() const noexcept override { return true; }
    // Of a file only. Damage is reported by this one alone.
    std::shared_ptr<ByteSource> Afresh() override {
        return std::make_shared<StreamSource>(Raw(), open_, [](DecoderEnd /*end*/) {});
    }

  private:
    std::size_t Decode(char* buffer, std::size_t room);
    void DecodeTo(std::uint64_t end, bool keep);
    [[nodiscard]] bool Keeps() const noexcept { return keptFrom_ < decoded_; }

    Open open_;
    OnDamage onDamage_;
    std::unique_ptr<StreamDecoder> decoder_;
    // So many bytes have come out; those from keptFrom_ on lie in kept_.
    std::uint64_t decoded_ = 0;
    std::uint64_t keptFrom_ = 0;
    bool ended_ = false;
    TemporaryFile kept_;
};

#endif
