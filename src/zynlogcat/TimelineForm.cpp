// The Trace Event Format, which trace viewers open: records that begin and end something become
// slices, all others moments. Memory grows with the slices that are open, and by a name for each
// host.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "Support/Utf8.h"
#include "zynlogcat/JsonText.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordFields.h"

namespace {

// What is kept of a record that an event is made of.
struct Moment {
    std::uint64_t time = 0;
    std::array<std::string, 3> names{};
    std::array<bool, 3> hasName{};
    std::optional<std::string> message{};
    std::uint32_t sequence = 0;

    explicit Moment(const TraceRecord& record) : time(*record.time), sequence(record.sequence) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            names[i] = record.decoded->values.names[i];
            hasName[i] = record.decoded->Has(kNameParts[i]);
        }
        if (record.HasMessage()) {
            message = record.message;
        }
    }

    [[nodiscard]] std::string Title() const {
        const std::string_view text = message ? std::string_view(*message) : std::string_view();
        std::string title = names[RecordValues::kModule];
        return title.append(" ").append(text.substr(0, text.find_first_of(" ([{")));
    }
};

// Hosts are numbered: viewers identify a process by a number alone.
struct Thread {
    std::uint64_t host = 0;
    std::uint32_t process = 0;
    std::uint32_t thread = 0;

    friend bool operator==(const Thread&, const Thread&) = default;
    friend auto operator<=>(const Thread&, const Thread&) = default;

    // Exact up to two million hosts, as far as numbers of JSON are. Of the first host it is that of
    // the process.
    [[nodiscard]] std::uint64_t ViewersProcess() const noexcept { return host << 32U | process; }
};

class TimelineForm final : public OutputForm {
  public:
    TimelineForm(TextFile& out, const FormSettings& settings)
        : out_(out), beginLabel_(settings.beginLabel), endLabel_(settings.endLabel) {}

    void Begin() override { out_.Write("{\"traceEvents\":["); }
    void Put(const TraceRecord& record) override;
    void End() override;
    [[nodiscard]] std::string Remark() const override;

  private:
    using Open = std::vector<Moment>;

    Thread ThreadOf(const TraceRecord& record);
    void NameThread(const Thread& thread, std::string_view host);
    void EndSlice(const Thread& thread, const TraceRecord& record);
    void PutInstant(const Thread& thread, const Moment& moment);
    void PutSlice(const Thread& thread, const Moment& moment, std::uint64_t end);
    void PutName(std::string_view kind, const Thread& thread, const std::string& name);
    void BeginEvent(std::string_view kind, const Thread& thread, const std::string& title);
    void EndEvent(const Moment& moment);

    TextFile& out_;
    std::string beginLabel_;
    std::string endLabel_;
    std::map<std::string, std::uint64_t, std::less<>> hosts_;
    std::map<Thread, Open> open_;
    // Threads that were named lately. One that comes back may be named again, which says the same.
    std::vector<std::optional<Thread>> named_ = std::vector<std::optional<Thread>>(kNamed);
    std::uint64_t leftOut_ = 0;
    bool first_ = true;

    static constexpr std::size_t kNamed = 4096;
};

Thread TimelineForm::ThreadOf(const TraceRecord& record) {
    const DecodedRecord& decoded = *record.decoded;
    auto host = hosts_.find(record.block->host);
    if (host == hosts_.end()) {
        host = hosts_.emplace(record.block->host, hosts_.size()).first;
    }
    return {host->second,
            decoded.Has(DecodedRecord::kProcess) ? decoded.values.process : record.block->writer,
            decoded.values.thread};
}

void TimelineForm::Put(const TraceRecord& record) {
    if (!record.time) {
        ++leftOut_;
        return;
    }
    const Thread thread = ThreadOf(record);
    NameThread(thread, record.block->host);
    const DecodedRecord& decoded = *record.decoded;
    const std::string_view label = decoded.values.names[RecordValues::kLabel];
    if (decoded.Has(DecodedRecord::kLabel) && label == beginLabel_) {
        open_[thread].emplace_back(record);
    } else if (decoded.Has(DecodedRecord::kLabel) && label == endLabel_) {
        EndSlice(thread, record);
    } else {
        PutInstant(thread, Moment(record));
    }
}

void TimelineForm::EndSlice(const Thread& thread, const TraceRecord& record) {
    const Moment end(record);
    const auto slices = open_.find(thread);
    if (slices == open_.end()) {
        PutInstant(thread, end);
        return;
    }
    Open& open = slices->second;
    const auto isPartner = [&end](const Moment& begin) {
        return begin.names[RecordValues::kModule] == end.names[RecordValues::kModule] &&
               begin.names[RecordValues::kClient] == end.names[RecordValues::kClient];
    };
    const auto innermost = std::find_if(open.rbegin(), open.rend(), isPartner);
    if (innermost == open.rend()) {
        PutInstant(thread, end);
        return;
    }
    const auto begin = innermost.base() - 1;
    for (auto inside = begin + 1; inside != open.end(); ++inside) {
        PutInstant(thread, *inside);
    }
    PutSlice(thread, *begin, end.time);
    open.erase(begin, open.end());
    if (open.empty()) {
        open_.erase(slices);
    }
}

void TimelineForm::End() {
    for (const auto& [thread, open] : open_) {
        for (const Moment& begin : open) {
            PutInstant(thread, begin);
        }
    }
    open_.clear();
    out_.Write("\n]}\n");
}

std::string TimelineForm::Remark() const {
    if (leftOut_ == 0) {
        return {};
    }
    return std::to_string(leftOut_) + (leftOut_ == 1 ? " record" : " records") +
           " without any time left out";
}

void TimelineForm::NameThread(const Thread& thread, std::string_view host) {
    const std::uint64_t mixed =
        (thread.ViewersProcess() * 31 + thread.thread) * 0x9E3779B97F4A7C15U;
    std::optional<Thread>& named = named_[static_cast<std::size_t>(mixed >> 52U)];
    static_assert(std::size_t{1} << 12U == kNamed);
    if (named == thread) {
        return;
    }
    named = thread;
    std::string process(host);
    PutName("process_name", thread, process.append("/").append(std::to_string(thread.process)));
    PutName("thread_name", thread, std::to_string(thread.thread));
}

void TimelineForm::PutName(std::string_view kind, const Thread& thread, const std::string& name) {
    BeginEvent("M", thread, std::string(kind));
    out_.Write(",\"args\":{\"name\":" + JsonString(name) + "}}");
}

void TimelineForm::PutInstant(const Thread& thread, const Moment& moment) {
    BeginEvent("i", thread, moment.Title());
    out_.Write(",\"s\":\"t\"");
    EndEvent(moment);
}

void TimelineForm::PutSlice(const Thread& thread, const Moment& moment, std::uint64_t end) {
    BeginEvent("X", thread, moment.Title());
    const std::uint64_t duration = end > moment.time ? end - moment.time : 0;
    out_.Write(",\"dur\":" + std::to_string(duration * 1000));
    EndEvent(moment);
}

void TimelineForm::BeginEvent(std::string_view kind, const Thread& thread,
                              const std::string& title) {
    out_.Write(first_ ? "\n" : ",\n");
    first_ = false;
    std::string text = "{\"ph\":\"";
    text.append(kind).append("\",\"pid\":").append(std::to_string(thread.ViewersProcess()));
    text.append(",\"tid\":").append(std::to_string(thread.thread));
    out_.Write(text.append(",\"name\":").append(JsonString(title)));
}

void TimelineForm::EndEvent(const Moment& moment) {
    const auto name = [&moment](RecordValues::Name which) {
        return moment.hasName[which] ? JsonString(moment.names[which]) : "null";
    };
    out_.Write(",\"ts\":" + std::to_string(moment.time * 1000));
    out_.Write(",\"cat\":" + JsonString(moment.names[RecordValues::kLabel]));
    out_.Write(",\"args\":{\"client\":" + name(RecordValues::kClient));
    out_.Write(",\"message\":" + (moment.message ? JsonString(*moment.message) : "null"));
    out_.Write(",\"seq\":" + std::to_string(moment.sequence) + "}}");
}

}  // namespace

std::unique_ptr<OutputForm> MakeTimelineForm(TextFile& out, const FormSettings& settings) {
    return std::make_unique<TimelineForm>(out, settings);
}
