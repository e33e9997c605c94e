#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TraceData/OrderedRecords.h"
#include "testing/logs/LogWriter.h"

namespace {

constexpr std::uint32_t kLimit = 4;

std::vector<std::uint32_t> NumbersOf(OrderedRecords<kLimit>& records) {
    std::vector<std::uint32_t> numbers;
    for (PlacedRecord record; records.Next(record);) {
        numbers.push_back(record.sequenceNumber);
    }
    return numbers;
}

std::string DataOf(const std::vector<std::uint32_t>& numbers) {
    std::string data;
    for (const std::uint32_t number : numbers) {
        data += LogRecord(number).Bytes();
    }
    return data;
}

// The same by pushing them.
std::vector<std::uint32_t> Pushed(const std::vector<std::uint32_t>& numbers) {
    struct Sink {
        void ProcessRecord(const TraceRecordReader& record) {
            numbers.push_back(record.sequenceNumber);
        }
        std::vector<std::uint32_t> numbers;
    };
    using Order = ReOrderer<Sink, kLimit>;
    const auto storage = std::make_unique<Order::Storage>();
    Sink sink;
    Order order(*storage, sink);
    for (const std::uint32_t number : numbers) {
        order.Push({number, 0, nullptr});
    }
    order.Drain();
    return sink.numbers;
}

class OrderedRecordsTest : public testing::Test {
  protected:
    void Open(const std::string& data) {
        data_ = data;
        records_->Open(data_.data(), static_cast<std::uint32_t>(data_.size()));
    }

    std::string data_;
    const std::unique_ptr<OrderedRecords<kLimit>> records_ =
        std::make_unique<OrderedRecords<kLimit>>();
};

TEST_F(OrderedRecordsTest, NothingIsThereBeforeTheFirstBlock) {
    PlacedRecord record;
    EXPECT_FALSE(records_->Next(record));
    EXPECT_EQ(records_->FoundDamage(), Damage::kNone);
}

TEST_F(OrderedRecordsTest, RecordsOfABlockComeInOrderWithTheirPlaces) {
    Open(DataOf({5, 3, 4}));
    PlacedRecord record;
    ASSERT_TRUE(records_->Next(record));
    EXPECT_EQ(record.sequenceNumber, 3U);
    EXPECT_EQ(record.offset, LogRecord(5).Size());
    EXPECT_EQ(NumbersOf(*records_), (std::vector<std::uint32_t>{4, 5}));
    EXPECT_FALSE(records_->Next(record)) << "the end stays the end";
}

TEST_F(OrderedRecordsTest, AnyOrderIsThatOfPushing) {
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int run = 0; run < 300; ++run) {
        std::vector<std::uint32_t> numbers(random() % 30);
        for (std::uint32_t& number : numbers) {
            number = static_cast<std::uint32_t>(random() % 20);
        }
        if (run % 3 == 0) {
            std::sort(numbers.begin(), numbers.end());
        }
        Open(DataOf(numbers));
        ASSERT_EQ(NumbersOf(*records_), Pushed(numbers));
    }
}

TEST_F(OrderedRecordsTest, DamageCostsTheRestOfTheBlockAndNotTheNext) {
    const std::string good = DataOf({2, 1});
    Open(good + LogRecord(0).HeaderLength(9).Bytes() + DataOf({3}));
    EXPECT_EQ(NumbersOf(*records_), (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(records_->FoundDamage(), Damage::kNoHeader);
    EXPECT_EQ(records_->DamageOffset(), good.size());
    Open(DataOf({9}) + LogRecord(0).Length(1).Bytes());
    EXPECT_EQ(NumbersOf(*records_), (std::vector<std::uint32_t>{9}));
    EXPECT_EQ(records_->FoundDamage(), Damage::kCutOff);
    EXPECT_EQ(records_->DamageOffset(), LogRecord(9).Size());
    Open(DataOf({8}));
    EXPECT_EQ(NumbersOf(*records_), (std::vector<std::uint32_t>{8}));
    EXPECT_EQ(records_->FoundDamage(), Damage::kNone);
}

}  // namespace
