// The last records of many.
#ifndef ZYN_ZYNLOGCAT_RECORDTAIL_H
#define ZYN_ZYNLOGCAT_RECORDTAIL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordView.h"

// Keeps copies of the last records it is given, `count` at most: the only memory that grows, with
// their number and length. One thread; the sink outlives it.
class RecordTail final : public RecordSink {
  public:
    // For how long the data of a record stays.
    enum class Data : std::uint8_t {
        kOfCall,   // until Put returns
        kOfBlock,  // until EndBlock, so that only what is kept of a block is copied
    };

    RecordTail(RecordSink& sink, std::uint32_t count, Data data = Data::kOfCall) noexcept
        : sink_(sink), count_(count), data_(data) {}

    void Put(const TraceRecord& record) override;
    void BeginBlock() override;
    void EndBlock() override;

    // Hands the records kept to the sink, in order, and keeps none of them. Those of a block that
    // has not ended are not among them, nor is a record there was no memory for.
    void Finish();

  private:
    // A block's origin with texts of its own.
    struct Origin {
        explicit Origin(const BlockOrigin& block);

        std::string host;
        std::vector<std::string> files;
        std::vector<BlockPiece> pieces;
        BlockOrigin block;
    };
    struct Kept {
        std::string data;  // kReadSlack more bytes than the record has
        std::shared_ptr<const Origin> origin;
        std::uint32_t offsetInBlock = 0;
        std::uint32_t sequence = 0;
        std::optional<std::uint64_t> time;
    };

    // The same, where it lies in its block.
    struct Seen {
        std::string_view data;
        std::uint32_t offsetInBlock = 0;
        std::uint32_t sequence = 0;
        std::optional<std::uint64_t> time;
    };

    void Keep(const Seen& seen, const std::shared_ptr<const Origin>& origin);
    [[nodiscard]] const std::shared_ptr<const Origin>& OriginOf(const BlockOrigin& block);

    RecordSink& sink_;
    std::uint32_t count_;
    Data data_;
    // A ring once it is full; next_ is the oldest then.
    std::vector<Kept> kept_;
    std::size_t next_ = 0;
    std::shared_ptr<const Origin> origin_;
    // The last of the block that is being read, a ring as well.
    std::vector<Seen> seen_;
    std::size_t nextSeen_ = 0;
    const BlockOrigin* block_ = nullptr;
    RecordView view_;
};

#endif
