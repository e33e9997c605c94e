#ifndef ZYN_TESTS_ZYNLOGCAT_SAMPLERECORD_H
#define ZYN_TESTS_ZYNLOGCAT_SAMPLERECORD_H

// A record of a block, as conditions and forms get it, made of packets that a test lays down.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "MemoryStream/MemoryStream.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordView.h"

class SampleRecord {
  public:
    explicit SampleRecord(const LogRecord& packets, std::uint32_t sequence = 7)
        : data_(packets.Data()) {
        const std::size_t size = data_.size();
        data_.append(kReadSlack, 'x');
        EXPECT_TRUE(view_.Open(data_.data(), static_cast<std::uint32_t>(size), record_));
        if (record_.decoded->Has(DecodedRecord::kTime)) {
            record_.time = record_.OwnTime();
        }
        record_.sequence = sequence;
        record_.offsetInBlock = 100;
        record_.block = &block_;
        Host("alpha");
        block_.writer = 4711;
        block_.pieces = {&piece_, 1};
        piece_ = {0, 301, file_};
    }
    SampleRecord(const SampleRecord&) = delete;
    SampleRecord& operator=(const SampleRecord&) = delete;

    SampleRecord& Host(std::string_view host) {
        host_ = std::string(host).append(kReadSlack, 'x');
        block_.host = std::string_view(host_).substr(0, host.size());
        return *this;
    }
    SampleRecord& File(std::string file) {
        file_ = std::move(file);
        piece_.file = file_;
        return *this;
    }
    SampleRecord& Block(std::uint64_t number) {
        block_.number = number;
        return *this;
    }
    SampleRecord& InheritTime(std::uint64_t time) {
        record_.time = time;
        return *this;
    }

    [[nodiscard]] const TraceRecord& Get() const { return record_; }

  private:
    std::string data_;
    std::string host_;
    std::string file_ = "dir/zynlog-1.txt";
    BlockPiece piece_;
    BlockOrigin block_;
    RecordView view_;
    TraceRecord record_;
};

// What a form writes of records.
template <typename... Records>
std::string Written(std::string_view form, const FormSettings& settings,
                    const Records&... records) {
    const TempDirectory directory;
    const std::string path = directory / "out";
    TextFile out(path, {});
    const std::unique_ptr<OutputForm> made = FindForm(form)->make(out, settings);
    made->Begin();
    (made->Put(records.Get()), ...);
    made->End();
    out.Close();
    return ReadFile(path);
}

inline LogRecord FullRecord() {
    return LogRecord(7)
        .Time(1700000000, 250)
        .Tid(3050630000)
        .Pid(15873)
        .Module("NetEngine")
        .Client("rx")
        .Label("Info")
        .Message("link up");
}

#endif
