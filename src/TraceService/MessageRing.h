// The ring of bytes in a shared region through which messages pass: a header of three words (read
// position, write position, capacity) and the data area. One byte always stays free, so that equal
// positions mean empty. doc/message-protocol.md has the bytes.
//
// The other side is another program, which may write anything at any time. So both positions are
// loaded once per operation, checked, and never looked at again; the capacity is the ring's own
// constant, never the word in the region; and no length is believed beyond the bytes between the
// positions.
#ifndef ZYN_TRACESERVICE_MESSAGERING_H
#define ZYN_TRACESERVICE_MESSAGERING_H

#include <cstdint>
#include <string_view>

#include "Support/SharedMemory.h"

class MessageRing {
  public:
    static constexpr std::uint32_t kHeaderBytes = 12;
    // Of the message rings, in both directions.
    static constexpr std::uint32_t kMessageCapacity = 512;
    // Of a client's ring of trace records.
    static constexpr std::uint32_t kTraceCapacity = 0xFFC00;

    // What a region for a ring must hold.
    static constexpr std::uint32_t RegionBytes(std::uint32_t capacity) noexcept {
        return kHeaderBytes + capacity;
    }

    // A view of the ring in region, which outlives it. Throws CheckOSCall "Can not open file
    // mapping" when the region is too small.
    MessageRing(SharedMemory& region, std::uint32_t capacity);

    // Makes the ring empty and writes its capacity. Whoever opens a ring does so.
    void Initialise() noexcept;

    // Whether there is something to read. False when the region has lost its file.
    [[nodiscard]] bool HoldsBytes() const noexcept;

    // Appends a whole frame, or nothing when there is no room for it or the positions make no
    // sense. The caller holds the lock of all writers.
    void Append(std::string_view frame) noexcept;

    // Reads what the ring held when the reader was made, piece by piece. Each piece that was read
    // is free for the writer at once. There is one reader per ring at any time.
    class Reader {
      public:
        // Throws CheckLogic "Insufficent data to be read" when a position lies outside the data
        // area, and empties the ring, so that the next reader does not meet the same again.
        explicit Reader(MessageRing& ring);

        // The next count bytes, or past them. Throws CheckLogic "Insufficent data to be read" when
        // the ring holds fewer; nothing is consumed then.
        void Read(char* destination, std::uint32_t count);
        void Skip(std::uint32_t count);

      private:
        void Advance(std::uint32_t count) noexcept;

        MessageRing& ring_;
        std::uint32_t read_ = 0;
        std::uint32_t available_ = 0;
    };

  private:
    // As at the start of the header. Aligned, so that both are loaded and stored at once on 32-bit
    // x86 too, and belong together whoever resets the ring meanwhile.
    struct alignas(8) Positions {
        std::uint32_t read;
        std::uint32_t write;
    };

    [[nodiscard]] Positions Snapshot() const noexcept;
    [[nodiscard]] bool IsInside(std::uint32_t position) const noexcept {
        return position < capacity_;
    }
    void StoreWord(std::uint32_t offset, std::uint32_t value) noexcept;

    SharedMemory& region_;
    char* data_;
    std::uint32_t capacity_;
};

#endif
