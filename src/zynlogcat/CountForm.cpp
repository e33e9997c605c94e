// How many records there are of each module, client, label, process and host: as a table or as one
// JSON object. Memory grows with the number of different names.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Support/PrintableText.h"
#include "Support/Utf8.h"
#include "TraceData/text/CalendarText.h"
#include "zynlogcat/JsonText.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordFields.h"
#include "zynlogcat/UtcText.h"

namespace {

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>()(text);
    }
};

struct NameCount {
    std::string name;
    std::uint64_t records;
};

// Most frequent first, then by name.
void Sort(std::vector<NameCount>& counts) {
    std::sort(counts.begin(), counts.end(), [](const NameCount& a, const NameCount& b) {
        return a.records != b.records ? a.records > b.records : a.name < b.name;
    });
}

class NameCounter {
  public:
    void Add(std::string_view name) {
        // Pointers to what the map holds stay valid while it grows.
        if (last_ == nullptr || last_->first != name) {
            auto found = counts_.find(name);
            if (found == counts_.end()) {
                found = counts_.emplace(name, 0).first;
            }
            last_ = &*found;
        }
        ++last_->second;
    }

    // form: what becomes of a name; those that become equal are added up.
    template <typename Form>
    [[nodiscard]] std::vector<NameCount> Sorted(Form&& form) const {
        std::map<std::string, std::uint64_t> sums;
        for (const auto& [name, count] : counts_) {
            sums[form(name)] += count;
        }
        std::vector<NameCount> sorted;
        for (const auto& [name, count] : sums) {
            sorted.push_back({name, count});
        }
        Sort(sorted);
        return sorted;
    }

  private:
    using Counts = std::unordered_map<std::string, std::uint64_t, TextHash, std::equal_to<>>;
    Counts counts_;
    Counts::value_type* last_ = nullptr;
};

class NumberCounter {
  public:
    void Add(std::uint32_t number) { ++counts_[number]; }
    void AddAbsent() { ++absent_; }

    [[nodiscard]] std::vector<NameCount> Sorted() const {
        std::vector<NameCount> sorted;
        if (absent_ != 0) {
            sorted.push_back({"", absent_});
        }
        for (const auto& [number, count] : counts_) {
            sorted.push_back({std::to_string(number), count});
        }
        Sort(sorted);
        return sorted;
    }

  private:
    std::unordered_map<std::uint32_t, std::uint64_t> counts_;
    std::uint64_t absent_ = 0;
};

class CountingForm : public OutputForm {
  public:
    explicit CountingForm(TextFile& out) : out_(out) {}

    void Put(const TraceRecord& record) final {
        ++records_;
        const DecodedRecord& decoded = *record.decoded;
        for (std::size_t i = 0; i < names_.size(); ++i) {
            names_[i].Add(decoded.Has(kNameParts[i]) ? decoded.values.names[i]
                                                     : std::string_view());
        }
        if (decoded.Has(DecodedRecord::kProcess)) {
            processes_.Add(decoded.values.process);
        } else {
            processes_.AddAbsent();
        }
        hosts_.Add(record.block->host);
        if (decoded.Has(DecodedRecord::kTime)) {
            first_ = std::min(first_, record.OwnTime());
            last_ = std::max(last_, record.OwnTime());
        }
    }

  protected:
    static constexpr std::array<std::string_view, 5> kKinds{"module", "client", "label", "pid",
                                                            "host"};

    // The counts of kKinds.
    template <typename Form>
    [[nodiscard]] std::array<std::vector<NameCount>, kKinds.size()> Counts(Form&& form) const {
        return {names_[0].Sorted(form), names_[1].Sorted(form), names_[2].Sorted(form),
                processes_.Sorted(), hosts_.Sorted(form)};
    }

    [[nodiscard]] bool HasTimes() const noexcept { return first_ <= last_; }

    TextFile& out_;
    std::uint64_t records_ = 0;
    std::uint64_t first_ = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t last_ = 0;

  private:
    std::array<NameCounter, 3> names_;
    NumberCounter processes_;
    NameCounter hosts_;
};

// No stream: one keeps the want of memory to itself and goes on with a text that is cut off.
std::string RightAligned(std::string_view text, std::size_t width, char fill) {
    std::string aligned(width - std::min(width, text.size()), fill);
    return aligned.append(text);
}

std::string LocalText(std::uint64_t time) {
    CalendarText calendar;
    std::string text(calendar.For(static_cast<std::uint32_t>(time / 1000)), CalendarText::kLength);
    return text.append(RightAligned(std::to_string(time % 1000), 3, '0'));
}

class CountTable final : public CountingForm {
  public:
    using CountingForm::CountingForm;

    void End() override {
        out_.Write(std::to_string(records_));
        out_.Write(records_ == 1 ? " record" : " records");
        if (HasTimes()) {
            out_.Write(", " + LocalText(first_) + " to " + LocalText(last_));
        }
        out_.Write("\n");
        const auto counts = Counts([](const std::string& name) { return name; });
        for (std::size_t i = 0; i < counts.size(); ++i) {
            PutKind(kKinds[i], counts[i]);
        }
    }

  private:
    void PutKind(std::string_view kind, const std::vector<NameCount>& counts) {
        constexpr std::size_t kWidth = 12;
        std::string title(kind);
        std::transform(title.begin(), title.end(), title.begin(),
                       [](char c) { return static_cast<char>(c - 'a' + 'A'); });
        out_.Write('\n' + RightAligned("RECORDS", kWidth, ' ') + "  " + title + '\n');
        for (const NameCount& count : counts) {
            out_.Write(RightAligned(std::to_string(count.records), kWidth, ' ') + "  " +
                       (count.name.empty() ? "-" : MaskedControls(count.name)) + '\n');
        }
    }
};

class CountJson final : public CountingForm {
  public:
    using CountingForm::CountingForm;

    void End() override {
        out_.Write("{\"records\":" + std::to_string(records_));
        out_.Write(",\"first\":" + Time(first_) + ",\"last\":" + Time(last_));
        const auto counts = Counts([](const std::string& name) { return RepairedUtf8(name); });
        for (std::size_t i = 0; i < counts.size(); ++i) {
            std::string head = ",\"";
            out_.Write(head.append(kKinds[i]).append("\":{"));
            bool first = true;
            for (const NameCount& count : counts[i]) {
                out_.Write((first ? "" : ",") + JsonString(count.name) + ':' +
                           std::to_string(count.records));
                first = false;
            }
            out_.Write("}");
        }
        out_.Write("}\n");
    }

  private:
    [[nodiscard]] std::string Time(std::uint64_t time) const {
        return HasTimes() ? '"' + UtcText::Text(time) + '"' : "null";
    }
};

}  // namespace

std::unique_ptr<OutputForm> MakeCountForm(TextFile& out, const FormSettings& /*settings*/) {
    return std::make_unique<CountTable>(out);
}

std::unique_ptr<OutputForm> MakeCountJsonForm(TextFile& out, const FormSettings& /*settings*/) {
    return std::make_unique<CountJson>(out);
}
