// The building blocks that carry trace data through memory: a fixed-capacity string, a byte buffer
// that lives inside its owner until it must grow, and the streams over them. Used by the log
// readers, the text rendering and the service messages. None of them locks: an object belongs to
// one thread.
#ifndef ZYN_MEMORYSTREAM_MEMORYSTREAM_H
#define ZYN_MEMORYSTREAM_MEMORYSTREAM_H

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "Support/LoadStore.h"
#include "Support/ValidationException.h"

// Bytes that can be read, whatever their value, behind every text that lies in a buffer of a log's
// bytes: short texts are copied in fixed sizes. Who fills such a buffer leaves room for them.
inline constexpr std::size_t kReadSlack = 64;

// A string of at most N characters, any byte allowed, always followed by a NUL. What does not fit
// is cut silently.
template <std::uint32_t N, std::uint32_t Storage = N + 1>
requires(Storage == N + 1) class CFastStr {
  public:
    CFastStr() noexcept { characters_[0] = '\0'; }
    explicit CFastStr(std::string_view text) noexcept : CFastStr() { Append(text); }
    CFastStr(const CFastStr&) noexcept = default;
    CFastStr& operator=(const CFastStr&) noexcept = default;
    virtual ~CFastStr() = default;

    void Clear() noexcept {
        length_ = 0;
        characters_[0] = '\0';
    }
    void Assign(std::string_view text) noexcept {
        length_ = 0;
        Append(text);
    }
    void Append(std::string_view text) noexcept {
        const std::size_t count = std::min<std::size_t>(text.size(), N - length_);
        // An empty view may carry a null pointer, which memmove must not be given.
        if (count != 0) {
            std::memmove(characters_.data() + length_, text.data(), count);
        }
        SetLength(length_ + static_cast<std::uint32_t>(count));
    }
    void Append(char character, std::size_t count = 1) noexcept {
        count = std::min<std::size_t>(count, N - length_);
        std::memset(characters_.data() + length_, character, count);
        SetLength(length_ + static_cast<std::uint32_t>(count));
    }

    [[nodiscard]] std::uint32_t Length() const noexcept { return length_; }
    [[nodiscard]] bool Full() const noexcept { return length_ == N; }
    [[nodiscard]] const char* CStr() const noexcept { return characters_.data(); }
    [[nodiscard]] std::string_view View() const noexcept { return {characters_.data(), length_}; }
    static constexpr std::uint32_t Capacity() noexcept { return N; }

  private:
    void SetLength(std::uint32_t length) noexcept {
        length_ = length;
        characters_[length] = '\0';
    }

    std::uint32_t length_ = 0;
    std::array<char, Storage> characters_;
};

// A byte buffer whose first N bytes lie inside the object; it moves to the heap only when it must
// grow, in whole multiples of N, so that a buffer reused for many records grows rarely. Never
// shrinks. The bytes are not initialised.
template <std::size_t N>
class SmartBuffer {
  public:
    SmartBuffer() noexcept { data_ = inline_.data(); }
    SmartBuffer(const SmartBuffer&) = delete;
    SmartBuffer& operator=(const SmartBuffer&) = delete;
    virtual ~SmartBuffer() = default;

    // Makes room for size bytes; what was there stays. Throws CheckMemoryAllocation "Can not expand
    // smart buffer", which leaves the buffer as it was.
    void Reserve(std::size_t size) {
        if (size > capacity_) {
            Grow(size);
        }
    }

    [[nodiscard]] char* Data() noexcept { return data_; }
    [[nodiscard]] const char* Data() const noexcept { return data_; }
    [[nodiscard]] std::size_t Capacity() const noexcept { return capacity_; }

  private:
    [[gnu::noinline]] void Grow(std::size_t size) {
        const std::size_t growth = size - size % N;
        constexpr auto kLargest =
            static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
        const bool fits = growth <= kLargest - N && capacity_ <= kLargest - N - growth;
        const std::size_t capacity = fits ? capacity_ + growth + N : 0;
        std::unique_ptr<char[]> storage(fits ? new (std::nothrow) char[capacity] : nullptr);
        ZYN_CHECK_MEMORY_ALLOCATION(storage != nullptr, "Can not expand smart buffer");
        std::memcpy(storage.get(), data_, capacity_);
        heap_ = std::move(storage);
        data_ = heap_.get();
        capacity_ = capacity;
    }

    std::size_t capacity_ = N;
    std::unique_ptr<char[]> heap_;
    std::array<char, N> inline_;
    char* data_ = nullptr;
};

// A read-only view of bytes in memory; the owner of the bytes outlives it.
class ReadableMemoryBuffer {
  public:
    ReadableMemoryBuffer(const char* data, std::uint32_t size) noexcept
        : data_(data), size_(size) {}

    [[nodiscard]] const char* Data() const noexcept { return data_; }
    [[nodiscard]] std::uint32_t Size() const noexcept { return size_; }

  private:
    const char* data_;
    std::uint32_t size_;
};

// Throws CheckLogic "Insufficent data to read", for readers that have found out by themselves.
[[noreturn, gnu::cold]] inline void RaiseInsufficientData() {
    ZYN_FAIL_LOGIC("Insufficent data to read");
}

// A reader over bytes in memory. Every read checks that its bytes lie inside the buffer, else
// throws CheckLogic "Insufficent data to read" and leaves the position where it was.
template <typename Buffer>
class BufferedInputStream {
  public:
    explicit BufferedInputStream(Buffer buffer) noexcept
        : begin_(buffer.Data()), next_(begin_), end_(begin_ + buffer.Size()) {}

    void read(char* buffer, unsigned int count) {
        const char* source = View(count);
        if (count != 0) {
            std::memcpy(buffer, source, count);
        }
    }

    // The next count bytes in place, and on past them.
    const char* View(std::uint32_t count) {
        if (count > Remaining()) [[unlikely]] {
            RaiseInsufficientData();
        }
        const char* bytes = next_;
        next_ += count;
        return bytes;
    }

    template <std::integral T>
    T Read() {
        return LoadLittleEndian<T>(View(sizeof(T)));
    }

    // The bytes at the position, for a caller that has looked at Remaining().
    [[nodiscard]] const char* Peek() const noexcept { return next_; }
    // count is at most Remaining().
    void Skip(std::uint32_t count) noexcept { next_ += count; }

    [[nodiscard]] std::uint32_t Position() const noexcept {
        return static_cast<std::uint32_t>(next_ - begin_);
    }
    [[nodiscard]] std::size_t Remaining() const noexcept {
        return static_cast<std::size_t>(end_ - next_);
    }

  private:
    const char* begin_;
    const char* next_;
    const char* end_;
};

// An output stream that appends into a SmartBuffer<N>.
template <std::size_t N>
class SmartBufferOutputStream {
  public:
    // Throws CheckMemoryAllocation "Can not expand smart buffer"; nothing is appended then.
    void write(const char* bytes, std::size_t count) {
        if (count == 0) {
            return;
        }
        const bool fits = count <= std::numeric_limits<std::size_t>::max() - size_;
        buffer_.Reserve(fits ? size_ + count : std::numeric_limits<std::size_t>::max());
        std::memcpy(buffer_.Data() + size_, bytes, count);
        size_ += count;
    }

    template <std::integral T>
    void Write(T value) {
        std::array<char, sizeof(T)> bytes;
        StoreLittleEndian(bytes.data(), value);
        write(bytes.data(), bytes.size());
    }

    void Clear() noexcept { size_ = 0; }
    [[nodiscard]] std::string_view View() const noexcept { return {buffer_.Data(), size_}; }

  private:
    SmartBuffer<N> buffer_;
    std::size_t size_ = 0;
};

#endif
