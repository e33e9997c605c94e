// Benchmarks of the steps that a record takes through an export: reading, splitting and ordering,
// decoding, rendering. bench/export times the whole program.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "LogReading/LogFiles.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/RecordSplitter.h"
#include "TraceData/text/LegacyZynRecord.h"
#include "TraceData/text/ZynDataTextExporter.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"

namespace {

constexpr std::string_view kMessage =
    "timer 59785 fired 37 ms late; dropped 28 packets for 10.214.130.78, code 33 [ab27]";

std::string RecordPackets() {
    LogRecord record(1);
    record.Time(1'700'000'000, 123).Tid(3075808112).Pid(31002);
    record.Module("PacketFilter").Client("retry-queue").Label("Detail").Message(kMessage);
    std::string bytes = record.Data();
    bytes.append(kReadSlack, '\0');
    return bytes;
}

void DecodeKnownShape(benchmark::State& state) {
    const std::string bytes = RecordPackets();
    const auto length = static_cast<std::uint32_t>(bytes.size() - kReadSlack);
    RecordDecoder decoder;
    for (auto _ : state) {
        benchmark::DoNotOptimize(&decoder.Decode(bytes.data(), length));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodeKnownShape);

void DecodePacketByPacket(benchmark::State& state) {
    const std::string bytes = RecordPackets();
    const auto length = static_cast<std::uint32_t>(bytes.size() - kReadSlack);
    DecodedRecord record;
    for (auto _ : state) {
        DecodePackets(bytes.data(), length, record);
        benchmark::DoNotOptimize(record);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodePacketByPacket);

// What a record's line is made of; the texts have bytes behind them.
class RenderedValues {
  public:
    RenderedValues() {
        for (std::string* text : {&module_, &client_, &label_, &message_}) {
            text->append(kReadSlack, ' ');
        }
        values_.process = 31002;
        values_.thread = 3075808112;
        values_.names = {View(module_), View(client_), View(label_)};
        values_.message = View(message_);
    }

    // Two thousand records a second, as a busy service writes.
    const RecordValues& Next() {
        ++count_;
        values_.seconds = 1'700'000'000 + count_ / 2000;
        values_.milliseconds = static_cast<std::uint16_t>(count_ % 1000);
        return values_;
    }

  private:
    static std::string_view View(const std::string& padded) {
        return std::string_view(padded).substr(0, padded.size() - kReadSlack);
    }

    std::string module_ = "PacketFilter";
    std::string client_ = "retry-queue";
    std::string label_ = "Detail";
    std::string message_{kMessage};
    RecordValues values_;
    std::uint32_t count_ = 0;
};

// Arguments: whether the record's values are all there is to show of it.
void RenderRecord(benchmark::State& state) {
    RenderedValues values;
    TextFile file("/dev/null", {});
    LegacyZynRecord writer(" ");
    DecodedRecord record;
    record.parts = DecodedRecord::kTime;
    record.isPlain = state.range(0) != 0;
    for (auto _ : state) {
        record.values = values.Next();
        writer.Write(record, file);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RenderRecord)->ArgName("plain")->Arg(1)->Arg(0);

struct RecordSink {
    void ProcessRecord(const TraceRecordReader& record) {
        benchmark::DoNotOptimize(record.sequenceNumber);
    }
};

// Arguments: records of a block, how many of them are shuffled among each other (0: none).
void OrderBlock(benchmark::State& state) {
    std::vector<std::uint32_t> numbers(static_cast<std::size_t>(state.range(0)));
    std::iota(numbers.begin(), numbers.end(), 1U);
    const auto window = static_cast<std::ptrdiff_t>(state.range(1));
    std::mt19937 random(1);
    for (auto begin = numbers.begin(); window != 0 && begin != numbers.end();) {
        const auto end = begin + std::min(window, numbers.end() - begin);
        std::shuffle(begin, end, random);
        begin = end;
    }
    using Order = ReOrderer<RecordSink, kReorderLimit>;
    Order::Storage storage;
    RecordSink sink;
    for (auto _ : state) {
        Order order(storage, sink);
        auto next = numbers.begin();
        order.Fill([&](TraceRecordReader& record) {
            if (next == numbers.end()) {
                return false;
            }
            record.sequenceNumber = *next++;
            return true;
        });
        while (next != numbers.end()) {
            order.Push({.sequenceNumber = *next++});
        }
        order.Drain();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(OrderBlock)
    ->ArgNames({"records", "window"})
    ->Args({280, 0})
    ->Args({280, 64})
    ->Args({280, 280})
    ->Args({5000, 0})
    ->Args({5000, 64})
    ->Args({5000, 5000});

void ReadLog(benchmark::State& state) {
    const TempDirectory directory;
    const std::string block(static_cast<std::size_t>(state.range(0)), 'x');
    constexpr std::size_t kFiles = 4;
    constexpr std::size_t kFileBytes = 4'000'000;
    for (std::size_t i = 0; i < kFiles; ++i) {
        WriteFile(directory.Path() + "/zynlog-" + std::to_string(i) + ".txt",
                  ZynBinaryFileOutputSupport::GetHeader() + std::string(kFileBytes, 'x'));
    }
    for (auto _ : state) {
        LogStream stream;
        stream.GetAllLogFiles(directory.Path(), kLogPrefix, kLogPart, kLogFormat);
        while (stream.Remaining() >= block.size()) {
            benchmark::DoNotOptimize(stream.View(static_cast<std::uint32_t>(block.size())));
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFiles * kFileBytes));
}
BENCHMARK(ReadLog)->ArgName("block")->Arg(2'000)->Arg(50'000)->Arg(200'000);

}  // namespace
