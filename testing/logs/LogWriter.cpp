// Lays down the bytes of binary trace logs (see LogWriter.h). The layout is written out here a
// second time, by hand, on purpose.

#include "testing/logs/LogWriter.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include "testing/process/Files.h"

namespace {

constexpr std::uint8_t kCodeMask = 0x0F;
constexpr std::uint8_t kLengthBit = 0x08;
constexpr std::uint8_t kValueBit = 0x10;
constexpr std::uint8_t kIdBit = 0x20;
constexpr unsigned kUnusedShift = 6;
constexpr std::size_t kHostBytes = 32;
constexpr std::uint32_t kBlockHeaderBytes = 40;
constexpr std::uint32_t kRecordHeaderBytes = 8;
constexpr std::size_t kLeastDigits = 4;

constexpr std::uint8_t Code(LogPacketCode code) { return static_cast<std::uint8_t>(code); }

std::uint32_t Size32(std::size_t size) {
    if (size > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("the format has no room for a length beyond 32 bits");
    }
    return static_cast<std::uint32_t>(size);
}

// Header byte, id and length of a packet, for a header byte that is final but for its id bit.
void AppendPacketStart(std::string& out, std::uint8_t headerByte, std::optional<std::uint16_t> id,
                       std::uint32_t length) {
    AppendU8(out, static_cast<std::uint8_t>(id ? headerByte | kIdBit : headerByte));
    if (id) {
        AppendU16(out, *id);
    }
    if ((headerByte & kLengthBit) != 0) {
        AppendU32(out, length);
    }
}

void AppendSizedPacket(std::string& out, LogPacketCode code, std::optional<std::uint16_t> id,
                       std::string_view payload) {
    AppendPacketStart(out, Code(code), id, Size32(payload.size()));
    out.append(payload);
}

void AppendU32Packet(std::string& out, std::uint16_t id, std::uint32_t value) {
    AppendPacketStart(out, Code(LogPacketCode::kU32), id, 0);
    AppendU32(out, value);
}

void AppendBlockPayload(std::string& out, std::string_view host, std::uint32_t pid,
                        std::uint32_t dataSize) {
    const std::string_view kept = host.substr(0, kHostBytes - 1);
    out.append(kept).append(kHostBytes - kept.size(), '\0');
    AppendU32(out, pid);
    AppendU32(out, dataSize);
}

void Drop(std::vector<std::string>& pieces, std::size_t index) {
    static_cast<void>(pieces.at(index));
    pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(index));
}

void Double(std::vector<std::string>& pieces, std::size_t index) {
    std::string copy = pieces.at(index);
    pieces.insert(pieces.begin() + static_cast<std::ptrdiff_t>(index), std::move(copy));
}

void Swap(std::vector<std::string>& pieces, std::size_t first, std::size_t second) {
    std::swap(pieces.at(first), pieces.at(second));
}

std::string Concatenated(const std::vector<std::string>& pieces) {
    std::string all;
    for (const std::string& piece : pieces) {
        all += piece;
    }
    return all;
}

}  // namespace

void AppendU8(std::string& out, std::uint8_t value) { out.push_back(static_cast<char>(value)); }

void AppendU16(std::string& out, std::uint16_t value) {
    const char bytes[] = {static_cast<char>(value & 0xFFU), static_cast<char>(value >> 8)};
    out.append(bytes, sizeof bytes);
}

void AppendU32(std::string& out, std::uint32_t value) {
    const char bytes[] = {static_cast<char>(value & 0xFFU), static_cast<char>((value >> 8) & 0xFFU),
                          static_cast<char>((value >> 16) & 0xFFU), static_cast<char>(value >> 24)};
    out.append(bytes, sizeof bytes);
}

void AppendI64(std::string& out, std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    AppendU32(out, static_cast<std::uint32_t>(bits & 0xFFFFFFFFU));
    AppendU32(out, static_cast<std::uint32_t>(bits >> 32));
}

LogPacket::LogPacket(LogPacketCode code) : headerByte_(Code(code)) {}

LogPacket::LogPacket(unsigned code) : headerByte_(static_cast<std::uint8_t>(code)) {
    if (code > kCodeMask) {
        throw std::out_of_range("a packet code has four bits");
    }
}

LogPacket LogPacket::String(std::uint16_t id, std::string_view text) {
    return LogPacket(LogPacketCode::kString).Id(id).Raw(text);
}

LogPacket LogPacket::Binary(std::uint16_t id, std::string_view payload) {
    return LogPacket(LogPacketCode::kBinary).Id(id).Raw(payload);
}

LogPacket& LogPacket::Id(std::uint16_t id) {
    id_ = id;
    return *this;
}

LogPacket& LogPacket::ValueFlag() {
    headerByte_ |= kValueBit;
    return *this;
}

LogPacket& LogPacket::UnusedBits(unsigned bits) {
    if (bits > 3) {
        throw std::out_of_range("two bits of the header byte are unused");
    }
    headerByte_ = static_cast<std::uint8_t>(headerByte_ | (bits << kUnusedShift));
    return *this;
}

LogPacket& LogPacket::Length(std::uint32_t declared) {
    if ((headerByte_ & kLengthBit) == 0) {
        throw std::logic_error("packets of this code declare no length");
    }
    declared_ = declared;
    return *this;
}

LogPacket& LogPacket::U8(std::uint8_t value) {
    AppendU8(payload_, value);
    return *this;
}

LogPacket& LogPacket::U16(std::uint16_t value) {
    AppendU16(payload_, value);
    return *this;
}

LogPacket& LogPacket::U32(std::uint32_t value) {
    AppendU32(payload_, value);
    return *this;
}

LogPacket& LogPacket::I64(std::int64_t value) {
    AppendI64(payload_, value);
    return *this;
}

LogPacket& LogPacket::Raw(std::string_view bytes) {
    payload_.append(bytes);
    return *this;
}

void LogPacket::AppendTo(std::string& out) const {
    AppendPacketStart(out, headerByte_, id_, declared_.value_or(Size32(payload_.size())));
    out += payload_;
}

std::string LogPacket::Bytes() const {
    std::string bytes;
    AppendTo(bytes);
    return bytes;
}

LogRecord::LogRecord(std::uint32_t sequence) : sequence_(sequence) {}

LogRecord& LogRecord::Reset(std::uint32_t sequence) {
    sequence_ = sequence;
    data_.clear();
    overrides_.reset();
    return *this;
}

LogRecord& LogRecord::Time(std::uint32_t seconds, std::uint16_t milliseconds, std::uint16_t zone,
                           std::uint32_t third) {
    AppendPacketStart(data_, Code(LogPacketCode::kBinary), kLogIdTime, 12);
    AppendU32(data_, seconds);
    AppendU16(data_, milliseconds);
    AppendU16(data_, zone);
    AppendU32(data_, third);
    return *this;
}

LogRecord& LogRecord::Tid(std::uint32_t tid) {
    AppendU32Packet(data_, kLogIdTid, tid);
    return *this;
}

LogRecord& LogRecord::Pid(std::uint32_t pid) {
    AppendU32Packet(data_, kLogIdPid, pid);
    return *this;
}

LogRecord& LogRecord::Module(std::string_view name) { return String(kLogIdModule, name); }

LogRecord& LogRecord::Client(std::string_view name) { return String(kLogIdClient, name); }

LogRecord& LogRecord::Label(std::string_view name) { return String(kLogIdLabel, name); }

LogRecord& LogRecord::Message(std::string_view text) {
    AppendSizedPacket(data_, LogPacketCode::kString, std::nullopt, text);
    return *this;
}

LogRecord& LogRecord::Control(std::uint32_t code, std::uint32_t pid) {
    AppendPacketStart(data_, Code(LogPacketCode::kBinary), kLogIdControl, 8);
    AppendU32(data_, code);
    AppendU32(data_, pid);
    return *this;
}

LogRecord& LogRecord::String(std::uint16_t id, std::string_view text) {
    AppendSizedPacket(data_, LogPacketCode::kString, id, text);
    return *this;
}

LogRecord& LogRecord::Packet(const LogPacket& packet) {
    packet.AppendTo(data_);
    return *this;
}

LogRecord& LogRecord::Raw(std::string_view bytes) {
    data_.append(bytes);
    return *this;
}

LogRecord& LogRecord::Length(std::uint32_t declared) {
    Override().length = declared;
    return *this;
}

LogRecord& LogRecord::HeaderLength(std::uint32_t declared) {
    Override().headerLength = declared;
    return *this;
}

LogRecord& LogRecord::HeaderByte(std::uint8_t byte) {
    Override().headerByte = byte;
    return *this;
}

LogRecord& LogRecord::HeaderPayload(std::string_view bytes) {
    Override().headerPayload = bytes;
    return *this;
}

LogRecord::Overrides& LogRecord::Override() {
    if (!overrides_) {
        overrides_.emplace();
    }
    return *overrides_;
}

void LogRecord::AppendTo(std::string& out) const {
    const std::uint32_t length = Size32(data_.size());
    if (!overrides_) {
        AppendPacketStart(out, Code(LogPacketCode::kBinary), std::nullopt, kRecordHeaderBytes);
        AppendU32(out, sequence_);
        AppendU32(out, length);
    } else {
        AppendPacketStart(out, overrides_->headerByte.value_or(Code(LogPacketCode::kBinary)),
                          std::nullopt, overrides_->headerLength.value_or(kRecordHeaderBytes));
        if (overrides_->headerPayload) {
            out += *overrides_->headerPayload;
        } else {
            AppendU32(out, sequence_);
            AppendU32(out, overrides_->length.value_or(length));
        }
    }
    out += data_;
}

std::string LogRecord::Bytes() const {
    std::string bytes;
    AppendTo(bytes);
    return bytes;
}

std::size_t LogRecord::Size() const {
    // Header byte and length of the header packet, its payload, the data.
    return 1 + 4 + kRecordHeaderBytes + data_.size();
}

LogBlock& LogBlock::Host(std::string_view name) {
    host_ = name;
    return *this;
}

LogBlock& LogBlock::Pid(std::uint32_t pid) {
    pid_ = pid;
    return *this;
}

LogBlock& LogBlock::Record(const LogRecord& record) {
    records_.push_back(record.Bytes());
    return *this;
}

LogBlock& LogBlock::Raw(std::string_view bytes) {
    records_.emplace_back(bytes);
    return *this;
}

LogBlock& LogBlock::DataSize(std::uint32_t declared) {
    dataSize_ = declared;
    return *this;
}

LogBlock& LogBlock::HeaderLength(std::uint32_t declared) {
    headerLength_ = declared;
    return *this;
}

LogBlock& LogBlock::HeaderByte(std::uint8_t byte) {
    headerByte_ = byte;
    return *this;
}

LogBlock& LogBlock::HeaderId(std::uint16_t id) {
    headerId_ = id;
    return *this;
}

LogBlock& LogBlock::HeaderPayload(std::string_view bytes) {
    headerPayload_ = bytes;
    return *this;
}

LogBlock& LogBlock::DropRecord(std::size_t index) {
    Drop(records_, index);
    return *this;
}

LogBlock& LogBlock::DoubleRecord(std::size_t index) {
    Double(records_, index);
    return *this;
}

LogBlock& LogBlock::SwapRecords(std::size_t first, std::size_t second) {
    Swap(records_, first, second);
    return *this;
}

std::string LogBlock::Data() const { return Concatenated(records_); }

void LogBlock::AppendTo(std::string& out) const {
    const std::string data = Data();
    AppendPacketStart(out, headerByte_.value_or(Code(LogPacketCode::kBinary)), headerId_,
                      headerLength_.value_or(kBlockHeaderBytes));
    if (headerPayload_) {
        out += *headerPayload_;
    } else {
        AppendBlockPayload(out, host_, pid_, dataSize_.value_or(Size32(data.size())));
    }
    out += data;
}

std::string LogBlock::Bytes() const {
    std::string bytes;
    AppendTo(bytes);
    return bytes;
}

void AppendBlockHeader(std::string& out, std::string_view host, std::uint32_t pid,
                       std::uint32_t dataSize) {
    AppendPacketStart(out, Code(LogPacketCode::kBinary), std::nullopt, kBlockHeaderBytes);
    AppendBlockPayload(out, host, pid, dataSize);
}

LogWriter& LogWriter::Block(const LogBlock& block) {
    blocks_.push_back(block.Bytes());
    return *this;
}

LogWriter& LogWriter::Raw(std::string_view bytes) {
    blocks_.emplace_back(bytes);
    return *this;
}

LogWriter& LogWriter::DropBlock(std::size_t index) {
    Drop(blocks_, index);
    return *this;
}

LogWriter& LogWriter::DoubleBlock(std::size_t index) {
    Double(blocks_, index);
    return *this;
}

LogWriter& LogWriter::SwapBlocks(std::size_t first, std::size_t second) {
    Swap(blocks_, first, second);
    return *this;
}

std::string LogWriter::Bytes() const { return Concatenated(blocks_); }

std::string LogWriter::File(bool withHeader) const {
    return withHeader ? FileHeader() + Bytes() : Bytes();
}

std::vector<std::string> LogWriter::Files(const std::vector<std::size_t>& offsets,
                                          const std::vector<bool>& withHeader) const {
    const std::string all = Bytes();
    std::vector<std::string> files;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= offsets.size(); ++i) {
        const std::size_t end = i < offsets.size() ? offsets[i] : all.size();
        if (end < start || end > all.size()) {
            throw std::out_of_range("a log is cut at ascending offsets inside of it");
        }
        const bool header = i >= withHeader.size() || withHeader[i];
        files.push_back((header ? FileHeader() : std::string()) + all.substr(start, end - start));
        start = end;
    }
    return files;
}

std::vector<std::string> LogWriter::WriteFiles(const std::string& directory,
                                               const std::vector<std::size_t>& offsets,
                                               const std::vector<bool>& withHeader) const {
    const std::vector<std::string> files = Files(offsets, withHeader);
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < files.size(); ++i) {
        paths.push_back(directory + "/" + FileName(i + 1, files.size()));
        WriteFile(paths.back(), files[i]);
    }
    return paths;
}

const std::string& LogWriter::FileHeader() {
    static const std::string header =
        "-----------------------------------------------------\r\n"
        "NOTE: ZYN 3.0 trace data is stored as binary format. \r\n"
        "Please type zyntool at command prompt for information\r\n"
        "about converting to text format.  \r\n"
        "-----------------------------------------------------\r\n";
    return header;
}

std::string LogWriter::FileName(std::size_t number, std::size_t count) {
    const std::string digits = std::to_string(number);
    const std::size_t width = std::max(std::to_string(count).size(), kLeastDigits);
    return "zynlog-" + std::string(width - std::min(width, digits.size()), '0') + digits + ".txt";
}

std::string Truncated(std::string_view bytes, std::size_t size) {
    if (size > bytes.size()) {
        throw std::out_of_range("truncation does not lengthen");
    }
    return std::string(bytes.substr(0, size));
}

std::string WithBitFlipped(std::string_view bytes, std::size_t offset, unsigned bit) {
    if (bit > 7) {
        throw std::out_of_range("a byte has eight bits");
    }
    std::string damaged(bytes);
    char& byte = damaged.at(offset);
    byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << bit));
    return damaged;
}

std::string WithZerosAppended(std::string_view bytes, std::size_t count) {
    return std::string(bytes).append(count, '\0');
}

std::string WithBytesAt(std::string_view bytes, std::size_t offset, std::string_view replacement) {
    if (offset > bytes.size() || replacement.size() > bytes.size() - offset) {
        throw std::out_of_range("a replacement lies inside the bytes");
    }
    return std::string(bytes).replace(offset, replacement.size(), replacement);
}
