#include "zynverify/LogSalvage.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "LogReading/BlockWalker.h"
#include "Support/LoadStore.h"
#include "TraceData/BlockCursor.h"
#include "TraceData/Damage.h"
#include "TraceData/PacketLayout.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/RecordSplitter.h"

namespace {

// Flags and length: the head that services put before the header of a block.
constexpr std::uint32_t kPlainHead = 1 + kPacketLengthBytes;

// Bytes of a block's data that are good, one behind the other there.
struct GoodRun {
    std::uint32_t offset = 0;
    std::uint32_t bytes = 0;
};

struct GoodRecords {
    std::vector<GoodRun> runs;
    std::uint64_t bytes = 0;
    std::uint64_t records = 0;
    std::uint64_t dropped = 0;
};

GoodRecords FindGood(const char* data, std::uint32_t size) {
    GoodRecords good;
    RecordSplitter splitter(data, size);
    RecordDecoder decoder;
    for (PlacedRecord record; splitter.Next(record);) {
        if (decoder.Decode(record.data, record.length).damage != Damage::kNone) {
            ++good.dropped;
            continue;
        }
        const std::uint32_t bytes = record.headerBytes + record.length;
        if (!good.runs.empty() &&
            good.runs.back().offset + good.runs.back().bytes == record.offset) {
            good.runs.back().bytes += bytes;
        } else {
            good.runs.push_back({record.offset, bytes});
        }
        good.bytes += bytes;
        ++good.records;
    }
    return good;
}

class Salvage {
  public:
    Salvage(LogData& data, const SalvageDirectory& directory)
        : data_(data), directory_(directory) {}

    SalvageResult Run() {
        // From here on it is known where each file begins.
        const std::uint64_t size = data_.Size();
        for (const LogData::Piece& piece : data_.Pieces()) {
            SalvagedFile file;
            file.path = piece.path;
            result_.files.push_back(std::move(file));
        }
        BlockWalker walker(data_);
        for (BlockWalker::Step step{}; (step = walker.Next()) != BlockWalker::Step::kEnd;) {
            if (step == BlockWalker::Step::kDamage) {
                KeepRemains(walker.Damage());
            } else {
                KeepBlock(walker.Block());
            }
        }
        CloseFile();
        Sum(size);
        return std::move(result_);
    }

  private:
    void KeepBlock(const FoundBlock& block) {
        const GoodRecords good = FindGood(block.data, block.dataBytes);
        const auto headerBytes = static_cast<std::size_t>(block.dataPosition - block.position);
        const std::span<const char> header = data_.Peek(block.position, headerBytes);
        // Where its length is wrong, the walker has handed out what there is of the block.
        const bool headerHolds =
            header.size() == headerBytes && headerBytes >= kBlockHeaderPayload &&
            LoadLittleEndian<std::uint32_t>(header.data() + headerBytes - 4) == block.dataBytes;
        if (headerHolds && (good.records != 0 || block.dataBytes == 0)) {
            CountBytes(block.position, block.dataPosition);
        }
        if (headerHolds && good.bytes == block.dataBytes) {
            SalvageFile& file = FileOf(block.position);
            file.Write(header);
            file.Write({block.data, block.dataBytes});
            Count(block, good);
            return;
        }
        KeepGood(block.position, block.dataPosition, {block.hostBytes.data(), kHostNameBytes},
                 block.processId, block.data, good);
    }

    // What stands where a block header is broken, or where the log ends within a block, may still
    // be a row of records behind the place of that header.
    void KeepRemains(const DamagedPlace& place) {
        constexpr std::uint32_t kLongestHeader = kLongestPacketHead + kBlockHeaderPayload;
        const std::span<const char> peeked = data_.Peek(place.position, kLongestHeader);
        std::array<char, kLongestHeader> bytes{};
        std::copy(peeked.begin(), peeked.end(), bytes.begin());
        // As the header itself says, then as services write it.
        const std::uint32_t head = PacketHeadBytes(static_cast<std::uint8_t>(bytes[0]));
        const bool says = LoadPacketHead(bytes.data()).length == kBlockHeaderPayload;
        for (const std::uint32_t likely :
             {says ? head : kPlainHead, kPlainHead, kLongestPacketHead}) {
            if (KeepRemains(place, bytes.data() + likely, likely)) {
                return;
            }
        }
    }

    // Whether any record could be kept with a header whose payload, kBlockHeaderPayload bytes, lies
    // behind `head` bytes.
    bool KeepRemains(const DamagedPlace& place, const char* payload, std::uint32_t head) {
        const std::uint64_t begin = place.position + head + kBlockHeaderPayload;
        const std::uint64_t end = RecordsEnd(begin, place.position + place.bytes);
        if (end == begin) {
            return false;
        }
        const auto size = static_cast<std::uint32_t>(end - begin);
        const char* const data = data_.View(begin, size);
        if (data == nullptr) {
            return false;
        }
        const GoodRecords good = FindGood(data, size);
        if (good.records == 0) {
            return false;
        }
        BlockHeader header;
        header.Load(payload);
        KeepGood(place.position, begin, header.hostName, header.processId, data, good);
        return true;
    }

    // How far records follow each other from `begin` on, without reading what is in them.
    std::uint64_t RecordsEnd(std::uint64_t begin, std::uint64_t limit) {
        constexpr std::uint32_t kLongestHeader = kLongestPacketHead + kRecordHeaderPayload;
        limit = std::min(limit, begin + UINT32_MAX);
        std::uint64_t end = begin;
        while (end < limit) {
            const auto wanted =
                static_cast<std::size_t>(std::min<std::uint64_t>(kLongestHeader, limit - end));
            const std::span<const char> bytes = data_.Peek(end, wanted);
            const std::uint64_t header = RecordHeaderBytes(bytes);
            if (header == 0) {
                break;
            }
            const std::uint64_t record =
                header + LoadLittleEndian<std::uint32_t>(bytes.data() + header - 4);
            if (record > limit - end) {
                break;
            }
            end += record;
        }
        return end;
    }

    // Of the record header that these bytes begin with; 0 when they do not.
    static std::uint32_t RecordHeaderBytes(std::span<const char> bytes) noexcept {
        if (bytes.empty()) {
            return 0;
        }
        const std::uint32_t head = PacketHeadBytes(static_cast<std::uint8_t>(bytes[0]));
        if (head + kRecordHeaderPayload > bytes.size() ||
            LoadPacketHead(bytes.data()).length != kRecordHeaderPayload) {
            return 0;
        }
        return head + kRecordHeaderPayload;
    }

    // Writes the good records as a block of their own; of a block without one nothing is kept.
    void KeepGood(std::uint64_t position, std::uint64_t dataPosition, std::span<const char> host,
                  std::uint32_t processId, const char* data, const GoodRecords& good) {
        SalvagedFile& from = result_.files[data_.PieceOf(position)];
        from.dropped += good.dropped;
        if (good.records == 0) {
            return;
        }
        SalvageFile& file = FileOf(position);
        std::array<char, kPlainHead + kBlockHeaderPayload> header{};
        header[0] = static_cast<char>(kPlainBinary);
        StoreLittleEndian(header.data() + 1, kBlockHeaderPayload);
        std::copy(host.begin(), host.end(), header.begin() + kPlainHead);
        StoreLittleEndian(header.data() + kPlainHead + kHostNameBytes, processId);
        StoreLittleEndian(header.data() + kPlainHead + kHostNameBytes + 4,
                          static_cast<std::uint32_t>(good.bytes));
        file.Write(header);
        for (const GoodRun& run : good.runs) {
            file.Write({data + run.offset, run.bytes});
            CountBytes(dataPosition + run.offset, dataPosition + run.offset + run.bytes);
        }
        ++from.blocks;
        from.records += good.records;
    }

    void Count(const FoundBlock& block, const GoodRecords& good) {
        SalvagedFile& from = result_.files[data_.PieceOf(block.position)];
        ++from.blocks;
        from.records += good.records;
        CountBytes(block.dataPosition, block.End());
    }

    // A run of bytes may lie in several files.
    void CountBytes(std::uint64_t begin, std::uint64_t end) {
        while (begin < end) {
            const std::size_t piece = data_.PieceOf(begin);
            const std::uint64_t next = EndOf(piece, end);
            result_.files[piece].kept += next - begin;
            begin = next;
        }
    }

    std::uint64_t EndOf(std::size_t piece, std::uint64_t limit) const {
        const std::span<const LogData::Piece> pieces = data_.Pieces();
        return piece + 1 < pieces.size() ? std::min(pieces[piece + 1].begin, limit) : limit;
    }

    // The copy of the file in which a position lies. Copies are made one after the other.
    SalvageFile& FileOf(std::uint64_t position) {
        const std::size_t piece = data_.PieceOf(position);
        SalvagedFile& from = result_.files[piece];
        if (!file_ || piece != filePiece_) {
            CloseFile();
            from.name = SalvagedName(from.path);
            file_.emplace(directory_, from.name);
            filePiece_ = piece;
        }
        return *file_;
    }

    void CloseFile() {
        if (file_) {
            file_->Close();
            file_.reset();
        }
    }

    void Sum(std::uint64_t size) {
        const std::span<const LogData::Piece> pieces = data_.Pieces();
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            SalvagedFile& file = result_.files[i];
            file.bytes = (i + 1 < pieces.size() ? pieces[i + 1].begin : size) - pieces[i].begin;
            result_.total.bytes += file.bytes;
            result_.total.kept += file.kept;
            result_.total.blocks += file.blocks;
            result_.total.records += file.records;
            result_.total.dropped += file.dropped;
        }
    }

    LogData& data_;
    const SalvageDirectory& directory_;
    SalvageResult result_;
    std::optional<SalvageFile> file_;
    std::size_t filePiece_ = 0;
};

}  // namespace

SalvageResult SalvageLog(LogData& data, const SalvageDirectory& directory) {
    return Salvage(data, directory).Run();
}
