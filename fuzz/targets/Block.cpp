// One block through TraceBlockReader, as it lies in the stream's buffer and as a copy.
#include <cstdint>
#include <string>

#include "LogReading/LogFiles.h"
#include "Support/ValidationException.h"
#include "TraceData/text/ZynDataTextExporter.h"
#include "targets/LogCase.h"

namespace {

// A log in memory. Block data is found in place, or has to be read into the reader's own buffer as
// that of a large block.
class MemoryLog {
  public:
    MemoryLog(std::string_view log, bool inPlace) : bytes_(log, kReadSlack), inPlace_(inPlace) {}

    void read(char* buffer, unsigned int count) { std::memcpy(buffer, Take(count), count); }
    const char* View(std::uint32_t count) {
        return inPlace_ || count <= kBlockHeaderPayload ? Take(count) : Refuse(count);
    }
    [[nodiscard]] std::uint64_t BytesRead() const noexcept { return position_; }
    [[nodiscard]] std::uint64_t TotalBytes() const noexcept { return bytes_.Size(); }

  private:
    const char* Take(std::uint32_t count) {
        Check(count);
        const char* taken = bytes_.Data() + position_;
        position_ += count;
        return taken;
    }
    const char* Refuse(std::uint32_t count) {
        Check(count);
        return nullptr;
    }
    void Check(std::uint32_t count) const {
        ZYN_CHECK_LOGIC(count <= bytes_.Size() - position_, "No more files available for read");
    }

    PlacedBytes bytes_;
    bool inPlace_;
    std::size_t position_ = 0;
};

void CheckPath(const LogCase& log, const ModelExport& expected, bool inPlace) {
    static const MemoryFile memory;
    MemoryLog stream(log.log, inPlace);
    std::string failure;
    std::uint64_t records = 0;
    {
        TextFile file(memory.Path(), {});
        ProgressDisplay progress(nullptr);
        ZynDataTextExporter::BlockReaderClient client(file, log.separator, progress, FuzzNowMs);
        TraceBlockReader<ZynDataTextExporter::BlockReaderClient, kReorderLimit> blocks;
        failure = FailureOf([&] { blocks.Process(client, stream); });
        records = client.Records();
        file.Close();
    }
    RequireEqual(failure, expected.failure, "another end of the block");
    RequireEqual(memory.Content(), expected.lines, "another text of the block");
    Require(records == expected.records, "another number of records");
    Require(!failure.empty() || stream.BytesRead() == expected.position,
            "the block ends somewhere else");
}

}  // namespace

int ZynFuzzBlock(FuzzInput input) {
    const LogCase log(input);
    const ModelExport expected = ModelExportLog(log.log, log.separator, kFuzzNow, 1);
    CheckPath(log, expected, true);
    CheckPath(log, expected, false);
    return 0;
}
