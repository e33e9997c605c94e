// zynlog-cat over a damaged log, in every output form: all tell of the same records, conditions
// choose those that the JSON shows to fulfil them, and neither the last lines nor the merged order
// are other records.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "LogReading/LogFiles.h"
#include "TraceData/text/TextFile.h"
#include "targets/LogCase.h"
#include "testing/process/Files.h"
#include "zynlogcat/CatOptions.h"
#include "zynlogcat/CatRun.h"

namespace {

using Json = nlohmann::json;

struct Shown {
    int status = 0;
    std::string output;
    std::string errors;
};

Shown Show(const CatOptions& options) {
    const MemoryFile file;
    TextFile out(file.Path(), nullptr);
    std::ostringstream errors;
    Shown shown;
    shown.status = RunCat(options, {.isTerminal = false, .colors = false}, out, errors);
    out.Close();
    shown.output = file.Content();
    shown.errors = errors.str();
    return shown;
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    Require(text.empty() || text.back() == '\n', "a line without an end");
    return lines;
}

// As RFC 4180 has them.
std::vector<std::vector<std::string>> RowsOf(std::string_view text) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row{""};
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted && c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
            row.back() += c;
            ++i;
        } else if (c == '"') {
            quoted = !quoted;
        } else if (quoted || (c != ',' && c != '\n')) {
            row.back() += c;
        } else if (c == ',') {
            row.emplace_back();
        } else {
            rows.push_back(row);
            row = {""};
        }
    }
    Require(!quoted && row.size() == 1 && row.front().empty(), "a row without an end");
    return rows;
}

void CheckRow(const std::vector<std::string>& row, const Json& record) {
    constexpr std::size_t kFields = 12;
    static const char* const kNames[kFields] = {"time",    "host",   "writer", "pid",
                                                "tid",     "module", "client", "label",
                                                "message", "seq",    "file",   "offset"};
    Require(row.size() == kFields, "a row of other fields");
    for (std::size_t i = 0; i < kFields; ++i) {
        const Json& value = record.at(kNames[i]);
        if (record.contains(std::string(kNames[i]) + "_base64")) {
            continue;
        }
        RequireEqual(row[i],
                     value.is_null()     ? ""
                     : value.is_string() ? value.get<std::string>()
                                         : value.dump(),
                     "another field");
    }
}

void CheckSums(const std::string& text, std::size_t records) {
    const Json sums = Json::parse(text);
    Require(sums.at("records") == records, "another count");
    for (const char* kind : {"module", "client", "label", "pid", "host"}) {
        std::size_t sum = 0;
        for (const auto& [name, count] : sums.at(kind).items()) {
            sum += count.get<std::size_t>();
        }
        Require(sum == records, "another sum");
    }
}

// Each record is an instant, or one end of a slice, or has no time.
void CheckTimeline(const Shown& shown, std::size_t records, std::size_t others) {
    const Json timeline = Json::parse(shown.output);
    std::size_t events = 0;
    for (const Json& event : timeline.at("traceEvents")) {
        events += event.at("ph") == "M" ? 0U : event.at("ph") == "X" ? 2U : 1U;
    }
    Require(events <= records, "more events than records");
    Require((events == records) == (shown.errors.size() == others), "events left out, unsaid");
}

class Case {
  public:
    explicit Case(const LogCase& log) {
        std::vector<std::size_t> places{0, log.log.size()};
        for (std::size_t i = 1; i < log.files; ++i) {
            places.push_back(log.words[i - 1] % (log.log.size() + 1));
        }
        std::sort(places.begin(), places.end());
        for (std::size_t i = 0; i + 1 < places.size(); ++i) {
            WriteFile(directory_ / ("zynlog-" + std::to_string(i) + ".txt"),
                      ZynBinaryFileOutputSupport::GetHeader() +
                          std::string(log.log.substr(places[i], places[i + 1] - places[i])));
        }
        options_.logs = {directory_.Path()};
        options_.form = "json";
        options_.live = (log.words[2] & 1U) != 0;
        options_.utc = true;
    }

    void Check(unsigned int wishes) {
        for (const std::string& line : LinesOf(Show(options_).output)) {
            all_.push_back(line);
        }
        Choose(wishes);
        const Shown json = Show(options_);
        const std::vector<std::string> lines = LinesOf(json.output);
        Require(lines == expected_, "other records are chosen");
        CheckForms(json, lines);
        CheckOrders(lines, wishes);
    }

  private:
    // Some conditions, and the lines that fulfil them.
    void Choose(unsigned int wishes) {
        std::optional<std::uint32_t> process;
        if ((wishes & 2U) != 0) {
            options_.conditions.labels = {"*"};
        }
        if ((wishes & 4U) != 0) {
            options_.conditions.expressions = {"[ab]e"};
        }
        if ((wishes & 8U) != 0 && !all_.empty()) {
            const Json pid = Json::parse(all_[wishes % all_.size()]).at("pid");
            process = pid.is_null() ? 0 : pid.get<std::uint32_t>();
            options_.conditions.processes = {*process};
        }
        for (const std::string& line : all_) {
            const Json record = Json::parse(line);
            const Json& message = record.at("message");
            const std::string text = message.is_null() ? "" : message.get<std::string>();
            const bool fits = ((wishes & 2U) == 0 || !record.at("label").is_null()) &&
                              ((wishes & 4U) == 0 || text.find("ae") != std::string::npos ||
                               text.find("be") != std::string::npos) &&
                              (!process || record.at("pid") == *process);
            if (fits) {
                expected_.push_back(line);
            }
        }
    }

    void CheckForms(const Shown& json, const std::vector<std::string>& lines) {
        CatOptions options = options_;
        for (const char* form : {"csv", "short", "columns", "count", "count-json", "timeline"}) {
            options.form = form;
            options.header = false;
            const Shown shown = Show(options);
            Require(shown.status == json.status, "another status");
            Require(shown.errors.starts_with(json.errors), "other damage");
            const std::string_view name = form;
            if (name == "csv") {
                const auto rows = RowsOf(shown.output);
                Require(rows.size() == lines.size(), "other rows");
                for (std::size_t i = 0; i < rows.size(); ++i) {
                    CheckRow(rows[i], Json::parse(lines[i]));
                }
            } else if (name == "short") {
                Require(LinesOf(shown.output).size() == lines.size(), "other lines");
            } else if (name == "columns") {
                // A message that is cut may have no line feed behind it, as in an export.
                Require(shown.output.empty() == lines.empty(), "no lines, or lines of none");
            } else if (name == "count-json") {
                CheckSums(shown.output, lines.size());
            } else if (name == "timeline") {
                CheckTimeline(shown, lines.size(), json.errors.size());
            }
        }
    }

    void CheckOrders(std::vector<std::string> lines, unsigned int wishes) {
        CatOptions options = options_;
        options.lines = wishes >> 8U;
        const std::size_t count = std::min<std::size_t>(*options.lines, lines.size());
        const std::vector<std::string> last = LinesOf(Show(options).output);
        Require(last == std::vector<std::string>(lines.end() - static_cast<std::ptrdiff_t>(count),
                                                 lines.end()),
                "other last lines");
        options.lines.reset();
        options.merge = true;
        std::vector<std::string> merged = LinesOf(Show(options).output);
        std::sort(merged.begin(), merged.end());
        std::sort(lines.begin(), lines.end());
        Require(merged == lines, "other records when merged");
    }

    TempDirectory directory_;
    CatOptions options_;
    std::vector<std::string> all_;
    std::vector<std::string> expected_;
};

}  // namespace

int ZynFuzzCat(FuzzInput input) {
    const LogCase log(input);
    Case(log).Check(log.words[2]);
    return 0;
}
