// The last records of many.
#ifndef ZYN_ZYNLOGCAT_RECORDTAIL_H
#define ZYN_ZYNLOGCAT_RECORDTAIL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordView.h"

// Keeps copies of the last records it is given, `count` at most: the only memory that grows, with
// their number and length. One thread; the sink outlives it.
class RecordTail final : public RecordSink {
  public:
    RecordTail(RecordSink& sink, std::uint32_t count) noexcept : sink_(sink), count_(count) {}

    void Put(const TraceRecord& record) override;

    // Hands the records kept to the sink, in order, and keeps none of them.
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

    [[nodiscard]] const std::shared_ptr<const Origin>& OriginOf(const TraceRecord& record);

    RecordSink& sink_;
    std::uint32_t count_;
    // A ring once it is full; next_ is the oldest then.
    std::vector<Kept> kept_;
    std::size_t next_ = 0;
    std::shared_ptr<const Origin> origin_;
    RecordView view_;
};

#endif
