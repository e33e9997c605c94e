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

#include "MultiFileStream/MultiFileStream.h"
#include "TraceData/LegacyZynRecord.h"
#include "TraceData/ReOrderer.h"
#include "TraceData/TracePacket.h"
#include "TraceData/ZynDataTextExporter.h"
#include "support/Files.h"
#include "support/LogWriter.h"

namespace {

constexpr std::string_view kMessage =
    "timer 59785 fired 37 ms late; dropped 28 packets for 10.214.130.78, code 33 [ab27]";

std::string RecordPackets() {
    LogRecord record(1);
    record.Time(1'700'000'000, 123).Tid(3075808112).Pid(31002);
    record.Module("PacketFilter").Client("retry-queue").Label("Detail").Message(kMessage);
    std::string bytes = record.Data();
    bytes.append(LegacyZynRecord::kReadSlack, '\0');
    return bytes;
}

// Takes values and does nothing with them.
struct ValueSink {
    void OnRead(std::string_view text, std::uint16_t id) {
        benchmark::DoNotOptimize(text.data());
        benchmark::DoNotOptimize(id);
    }
    void OnThread(std::uint32_t value) { benchmark::DoNotOptimize(value); }
    void OnProcess(std::uint32_t value) { benchmark::DoNotOptimize(value); }
    void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) {
        benchmark::DoNotOptimize(seconds);
        benchmark::DoNotOptimize(milliseconds);
    }
    void OnControl(std::uint32_t code, std::uint32_t process) {
        benchmark::DoNotOptimize(code);
        benchmark::DoNotOptimize(process);
    }
};

using MemoryReader = BufferedInputStream<ReadableMemoryBuffer>;

MemoryReader ReaderOver(const std::string& padded) {
    return MemoryReader(ReadableMemoryBuffer(
        padded.data(), static_cast<std::uint32_t>(padded.size() - LegacyZynRecord::kReadSlack)));
}

void DecodeUsualRecord(benchmark::State& state) {
    const std::string bytes = RecordPackets();
    ValueSink sink;
    for (auto _ : state) {
        TracePacketReader<MemoryReader, ValueSink> packets(ReaderOver(bytes), sink);
        packets.ProcessAll();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodeUsualRecord);

void DecodePacketByPacket(benchmark::State& state) {
    const std::string bytes = RecordPackets();
    ValueSink sink;
    for (auto _ : state) {
        TracePacketReader<MemoryReader, ValueSink> packets(ReaderOver(bytes), sink);
        while (!packets.AtEnd()) {
            packets.Process();
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodePacketByPacket);

void RenderRecord(benchmark::State& state) {
    const std::string padding(LegacyZynRecord::kReadSlack, ' ');
    const std::string module = "PacketFilter" + padding;
    const std::string client = "retry-queue" + padding;
    const std::string label = "Detail" + padding;
    const std::string message = std::string(kMessage) + padding;
    TextFile file("/dev/null", {});
    LegacyZynRecord record(" ");
    std::uint32_t second = 1'700'000'000;
    std::uint32_t count = 0;
    for (auto _ : state) {
        record.Reset();
        // Two thousand records a second, as a busy service writes.
        second += ++count % 2000 == 0 ? 1U : 0U;
        record.SetTime(second, static_cast<std::uint16_t>(count % 1000));
        record.SetProcess(31002);
        record.SetThread(3075808112);
        record.SetName(LegacyZynRecord::Name::kModule, {module.data(), 12});
        record.SetName(LegacyZynRecord::Name::kClient, {client.data(), 11});
        record.SetName(LegacyZynRecord::Name::kLabel, {label.data(), 6});
        record.AddMessage({message.data(), kMessage.size()});
        record >> file;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RenderRecord);

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
        for (const std::uint32_t number : numbers) {
            order.Push({.sequenceNumber = number});
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
        MultiFileInputStream<ZynBinaryFileOutputSupport, 256U> stream;
        stream.GetAllLogFiles(directory.Path(), "zynlog-", "txt", "binary");
        while (stream.Remaining() >= block.size()) {
            benchmark::DoNotOptimize(stream.View(static_cast<std::uint32_t>(block.size())));
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFiles * kFileBytes));
}
BENCHMARK(ReadLog)->ArgName("block")->Arg(2'000)->Arg(50'000)->Arg(200'000);

}  // namespace
