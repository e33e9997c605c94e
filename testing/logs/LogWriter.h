#ifndef ZYN_TESTING_LOGS_LOGWRITER_H
#define ZYN_TESTING_LOGS_LOGWRITER_H

// Builds binary trace logs, byte by byte, for tests, samples and benchmarks: packets make records,
// records make blocks, blocks make a log, a log is split into files. Every length that the format
// holds can be overridden, so that any broken log can be built as well as any valid one. Nothing
// here shares code with the reader, so a mistake in the reader's idea of the layout shows.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Little-endian stores at the end of `out`, whatever the host's byte order and word size.
void AppendU8(std::string& out, std::uint8_t value);
void AppendU16(std::string& out, std::uint16_t value);
void AppendU32(std::string& out, std::uint32_t value);
void AppendI64(std::string& out, std::int64_t value);

// The low four bits of a packet's header byte.
enum class LogPacketCode : std::uint8_t {
    kNone = 0,
    kByte = 1,
    kSignedByte = 2,
    kU16 = 3,
    kU32 = 4,
    kDouble = 5,
    kNone6 = 6,
    kNone7 = 7,
    kSized = 8,
    kString = 9,
    kBinary = 10,
    kSized11 = 11,
    kSized12 = 12,
    kSized13 = 13,
    kSized14 = 14,
    kSized15 = 15,
};

// Packet ids that readers give a meaning to. A message is a string with id 0, which may as well be
// left out.
inline constexpr std::uint16_t kLogIdMessage = 0;
inline constexpr std::uint16_t kLogIdTime = 2;
inline constexpr std::uint16_t kLogIdTid = 3;
inline constexpr std::uint16_t kLogIdPid = 4;
inline constexpr std::uint16_t kLogIdControl = 6;
inline constexpr std::uint16_t kLogIdModule = 32;
inline constexpr std::uint16_t kLogIdClient = 33;
inline constexpr std::uint16_t kLogIdLabel = 34;

// One packet: header byte, optional id, length where the code has one, payload. The payload is
// laid down as given, also where its size is wrong for the code.
class LogPacket {
  public:
    explicit LogPacket(LogPacketCode code);
    explicit LogPacket(unsigned code);  // 0 to 15

    static LogPacket String(std::uint16_t id, std::string_view text);
    static LogPacket Binary(std::uint16_t id, std::string_view payload);

    LogPacket& Id(std::uint16_t id);            // sets bit 5; id 0 is written too
    LogPacket& ValueFlag();                     // sets bit 4
    LogPacket& UnusedBits(unsigned bits);       // bits 6 and 7, 0 to 3
    LogPacket& Length(std::uint32_t declared);  // instead of the payload's size (codes 8 to 15)
    LogPacket& U8(std::uint8_t value);
    LogPacket& U16(std::uint16_t value);
    LogPacket& U32(std::uint32_t value);
    LogPacket& I64(std::int64_t value);
    LogPacket& Raw(std::string_view bytes);

    void AppendTo(std::string& out) const;
    [[nodiscard]] std::string Bytes() const;

  private:
    std::uint8_t headerByte_;
    std::optional<std::uint16_t> id_;
    std::optional<std::uint32_t> declared_;
    std::string payload_;
};

// One record: its header packet, then its packets back to back. `Reset` empties it for the next
// record and keeps the memory, so a generator can write millions without an allocation each.
class LogRecord {
  public:
    explicit LogRecord(std::uint32_t sequence = 0);

    LogRecord& Reset(std::uint32_t sequence);

    LogRecord& Time(std::uint32_t seconds, std::uint16_t milliseconds, std::uint16_t zone = 0,
                    std::uint32_t third = 0);
    LogRecord& Tid(std::uint32_t tid);
    LogRecord& Pid(std::uint32_t pid);
    LogRecord& Module(std::string_view name);
    LogRecord& Client(std::string_view name);
    LogRecord& Label(std::string_view name);
    LogRecord& Message(std::string_view text);  // without an id, as the service writes it
    LogRecord& Control(std::uint32_t code, std::uint32_t pid);
    LogRecord& String(std::uint16_t id, std::string_view text);
    LogRecord& Packet(const LogPacket& packet);
    LogRecord& Raw(std::string_view bytes);

    // Overrides of what the header packet says; each is right unless set.
    LogRecord& Length(std::uint32_t declared);         // data length, right: size of the data
    LogRecord& HeaderLength(std::uint32_t declared);   // header payload length, right: 8
    LogRecord& HeaderByte(std::uint8_t byte);          // right: 0x0A, a binary packet without id
    LogRecord& HeaderPayload(std::string_view bytes);  // instead of number and length

    [[nodiscard]] const std::string& Data() const { return data_; }
    void AppendTo(std::string& out) const;
    [[nodiscard]] std::string Bytes() const;
    [[nodiscard]] std::size_t Size() const;  // of `Bytes`, without overrides

  private:
    // What hardly any record overrides, apart so that `Reset` is cheap.
    struct Overrides {
        std::optional<std::uint32_t> length;
        std::optional<std::uint32_t> headerLength;
        std::optional<std::uint8_t> headerByte;
        std::optional<std::string> headerPayload;
    };

    std::uint32_t sequence_;
    std::string data_;
    std::optional<Overrides> overrides_;

    Overrides& Override();
};

// One block: its header packet, then its records. Records (and pieces of raw bytes) are numbered
// from 0 in the order in which they were added; the damages below throw std::out_of_range for a
// number that is not there.
class LogBlock {
  public:
    LogBlock& Host(std::string_view name);  // at most 31 characters are kept
    LogBlock& Pid(std::uint32_t pid);
    LogBlock& Record(const LogRecord& record);
    LogBlock& Raw(std::string_view bytes);

    // Overrides of what the header packet says; each is right unless set.
    LogBlock& DataSize(std::uint32_t declared);       // right: size of the data
    LogBlock& HeaderLength(std::uint32_t declared);   // right: 40
    LogBlock& HeaderByte(std::uint8_t byte);          // right: 0x0A, a binary packet without id
    LogBlock& HeaderId(std::uint16_t id);             // adds an id, which readers pass over
    LogBlock& HeaderPayload(std::string_view bytes);  // instead of host, pid and data size

    LogBlock& DropRecord(std::size_t index);
    LogBlock& DoubleRecord(std::size_t index);
    LogBlock& SwapRecords(std::size_t first, std::size_t second);

    [[nodiscard]] std::size_t RecordCount() const { return records_.size(); }
    [[nodiscard]] std::string Data() const;
    void AppendTo(std::string& out) const;
    [[nodiscard]] std::string Bytes() const;

  private:
    std::string host_ = "testhost";
    std::uint32_t pid_ = 1;
    std::vector<std::string> records_;
    std::optional<std::uint32_t> dataSize_;
    std::optional<std::uint32_t> headerLength_;
    std::optional<std::uint8_t> headerByte_;
    std::optional<std::uint16_t> headerId_;
    std::optional<std::string> headerPayload_;
};

// Appends the header of a block whose data of `dataSize` bytes the caller lays down himself.
void AppendBlockHeader(std::string& out, std::string_view host, std::uint32_t pid,
                       std::uint32_t dataSize);

// The run of blocks that one log holds, without any file header: files are made of its pieces.
class LogWriter {
  public:
    LogWriter& Block(const LogBlock& block);
    LogWriter& Raw(std::string_view bytes);

    LogWriter& DropBlock(std::size_t index);
    LogWriter& DoubleBlock(std::size_t index);
    LogWriter& SwapBlocks(std::size_t first, std::size_t second);

    [[nodiscard]] std::string Bytes() const;

    // The content of one file that holds the whole log.
    [[nodiscard]] std::string File(bool withHeader = true) const;

    // Cuts the log at the given ascending offsets into contents of one file more than offsets.
    // withHeader says for each file whether it gets the header; files beyond its end get it.
    // Throws std::out_of_range for an offset that descends or lies behind the end.
    [[nodiscard]] std::vector<std::string> Files(const std::vector<std::size_t>& offsets,
                                                 const std::vector<bool>& withHeader = {}) const;

    // Writes `Files` as "zynlog-0001.txt" and so on into the directory; returns the paths.
    std::vector<std::string> WriteFiles(const std::string& directory,
                                        const std::vector<std::size_t>& offsets = {},
                                        const std::vector<bool>& withHeader = {}) const;

    // The 256 bytes that begin a log file.
    static const std::string& FileHeader();

    // "zynlog-0001.txt" for number 1; as many digits as `count` files need, at least four, so that
    // names sort bytewise in the order of their numbers.
    static std::string FileName(std::size_t number, std::size_t count);

  private:
    std::vector<std::string> blocks_;
};

// Damages to bytes that are already laid down. Each throws std::out_of_range for a place outside.
[[nodiscard]] std::string Truncated(std::string_view bytes, std::size_t size);
[[nodiscard]] std::string WithBitFlipped(std::string_view bytes, std::size_t offset, unsigned bit);
[[nodiscard]] std::string WithZerosAppended(std::string_view bytes, std::size_t count);
[[nodiscard]] std::string WithBytesAt(std::string_view bytes, std::size_t offset,
                                      std::string_view replacement);

#endif
