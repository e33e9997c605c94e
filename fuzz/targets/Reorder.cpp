// Sequence numbers through re-orderings of several sizes, against a sorted set.
#include <cstdint>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "TraceData/ReOrderer.h"
#include "targets/Support.h"

namespace {

// Where in the input order a record stood, in the order of their leaving; a record whose emission
// fails is noted each time.
class Emissions {
  public:
    // failing: the record, by its place, that cannot be emitted.
    explicit Emissions(std::size_t failing) noexcept : failing_(failing) {}

    void Emit(std::uint32_t place) {
        places_.push_back(place);
        if (place == failing_) {
            throw std::runtime_error("cannot be emitted");
        }
    }
    void ProcessRecord(const TraceRecordReader& record) { Emit(record.length); }
    [[nodiscard]] const std::vector<std::uint32_t>& Places() const noexcept { return places_; }

  private:
    std::size_t failing_;
    std::vector<std::uint32_t> places_;
};

class NaiveOrder {
  public:
    NaiveOrder(std::size_t limit, Emissions& emissions) noexcept
        : limit_(limit), emissions_(emissions) {}

    void Push(const TraceRecordReader& record) {
        if (held_.size() == limit_) {
            EmitSmallest();
        }
        held_.emplace(record.sequenceNumber, record.length);
    }
    void Drain() {
        while (!held_.empty()) {
            EmitSmallest();
        }
    }

  private:
    void EmitSmallest() {
        emissions_.Emit(held_.begin()->second);
        held_.erase(held_.begin());
    }

    std::size_t limit_;
    Emissions& emissions_;
    // Sequence number and place.
    std::set<std::pair<std::uint32_t, std::uint32_t>> held_;
};

// As the block reader does: what ends the pushing does not end the draining.
template <typename Order>
std::string RunBlock(Order& order, const std::vector<TraceRecordReader>& records) {
    try {
        for (const TraceRecordReader& record : records) {
            order.Push(record);
        }
    } catch (const std::runtime_error&) {
        // Met again by the drain.
    }
    return FailureOf([&] { order.Drain(); });
}

template <std::uint32_t Limit>
void Check(const std::vector<TraceRecordReader>& records, std::size_t failing) {
    using Order = ReOrderer<Emissions, Limit>;
    const auto storage = std::make_unique<typename Order::Storage>();
    Emissions actual(failing);
    Order order(*storage, actual);
    const std::string actualFailure = RunBlock(order, records);

    Emissions expected(failing);
    NaiveOrder naive(Limit, expected);
    RequireEqual(actualFailure, RunBlock(naive, records), "the drain ends differently");
    Require(actual.Places() == expected.Places(), "another order of the records");
}

// Runs of numbers: near ones in any order, rising and falling ones, equal ones, far ones.
std::vector<TraceRecordReader> RecordsOf(FuzzScript& script) {
    constexpr std::size_t kMost = 2500;
    std::vector<TraceRecordReader> records;
    std::uint32_t number = script.U32();
    const auto add = [&records](std::uint32_t sequenceNumber) {
        records.push_back({sequenceNumber, static_cast<std::uint32_t>(records.size()), nullptr});
    };
    while (!script.AtEnd() && records.size() < kMost) {
        const std::uint8_t step = script.U8();
        const unsigned int count = (step & 0x0FU) * (step & 0x0FU);
        switch (step >> 5U) {
            case 0:
                add(number += script.U8());
                break;
            case 1:
                add(number - script.U8());
                break;
            case 2:
                add(number = script.U32());
                break;
            case 3:
                for (unsigned int i = 0; i < count; ++i) {
                    add(++number);
                }
                break;
            case 4:
                for (unsigned int i = 0; i < count; ++i) {
                    add(--number);
                }
                break;
            case 5:
                for (unsigned int i = 0; i < count; ++i) {
                    add(number);
                }
                break;
            case 6:
                for (unsigned int i = 0; i < count; ++i) {
                    add(number + (i * 37U) % 64U);
                }
                break;
            default:
                add(number + script.U16());
                break;
        }
    }
    return records;
}

}  // namespace

int ZynFuzzReorder(FuzzInput input) {
    FuzzScript script(input);
    const std::uint8_t size = script.U8();
    const std::uint16_t failure = script.U16();
    const std::size_t failing = (size & 0x80U) != 0 ? failure % 1200U : SIZE_MAX;
    const std::vector<TraceRecordReader> records = RecordsOf(script);
    switch (size % 4U) {
        case 0:
            Check<5>(records, failing);
            break;
        case 1:
            Check<17>(records, failing);
            break;
        case 2:
            Check<100>(records, failing);
            break;
        default:
            Check<1000>(records, failing);
            break;
    }
    return 0;
}
