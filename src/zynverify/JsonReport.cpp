#include "zynverify/JsonReport.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace {

// In the order in which the members are put in.
using Json = nlohmann::ordered_json;

std::string Text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json TimeJson(const TimeRange& range) {
    if (range.Empty()) {
        return nullptr;
    }
    return {{"first_ms", range.first}, {"last_ms", range.last}};
}

Json WriterJson(const Writer& writer) {
    return {{"host", writer.host}, {"process", writer.process}};
}

Json WritersJson(const Writers& writers) {
    Json list = Json::array();
    for (const Writer& writer : writers.known) {
        list.push_back(WriterJson(writer));
    }
    return list;
}

Json FileJson(const FileReport& file) {
    return {{"file", file.path},
            {"bytes", file.bytes},
            {"blocks", file.blocks},
            {"records", file.records},
            {"findings", file.findings},
            {"time", TimeJson(file.time)},
            {"writers", WritersJson(file.writers)},
            {"more_writers", file.writers.more}};
}

// The members of a log that are known at its end, without the braces around them.
std::string SumsText(const LogReport& log) {
    const std::string text = Text(Json{{"blocks", log.blocks},
                                       {"records", log.records},
                                       {"exported", log.exported},
                                       {"total_bytes", log.totalBytes},
                                       {"verified_bytes", log.verifiedBytes},
                                       {"missing", log.missing},
                                       {"duplicates", log.duplicates},
                                       {"out_of_order", log.late},
                                       {"findings", log.findings},
                                       {"time", TimeJson(log.time)},
                                       {"writers", WritersJson(log.writers)},
                                       {"more_writers", log.writers.more},
                                       {"damaged", log.damaged},
                                       {"unreadable", log.unreadable}});
    return text.substr(1, text.size() - 2);
}

}  // namespace

JsonReport::JsonReport(std::ostream& out, bool blocks, ProgressLine& progress)
    : out_(out), progress_(progress), blocks_(blocks) {
    out_ << R"({"program":"zynlog-verify","version":)" << Text(ZYN_VERSION) << R"(,"logs":[)";
}

void JsonReport::OnLogBegin(const LogReport& log) {
    out_ << (firstLog_ ? "\n" : ",\n") << R"({"log":)" << Text(log.name) << R"(,"items":[)";
    firstLog_ = false;
    firstItem_ = true;
}

void JsonReport::PutItem(const std::string& json) {
    progress_.Clear();
    out_ << (firstItem_ ? "\n" : ",\n") << json;
    firstItem_ = false;
}

void JsonReport::OnFinding(const Finding& finding) {
    Json json{{"type", "finding"},   {"kind", KindName(finding.kind)},
              {"file", nullptr},     {"offset", nullptr},
              {"block", nullptr},    {"bytes", finding.bytes},
              {"records", nullptr},  {"export", ExportEffect(finding.kind)},
              {"text", finding.text}};
    if (!finding.file.empty()) {
        json["file"] = finding.file;
    }
    if (finding.block != 0) {
        json["offset"] = finding.offset;
        json["block"] = finding.block;
    }
    if (finding.records) {
        json["records"] = *finding.records;
    }
    PutItem(Text(json));
}

void JsonReport::OnBlock(const BlockReport& block) {
    if (!blocks_) {
        return;
    }
    Json json{{"type", "block"},
              {"block", block.number},
              {"file", block.file},
              {"offset", block.offset},
              {"bytes", block.dataBytes},
              {"records", block.records},
              {"lowest", nullptr},
              {"highest", nullptr},
              {"time", TimeJson(block.time)},
              {"writer", WriterJson(block.writer)}};
    if (block.records != 0) {
        json["lowest"] = block.lowest;
        json["highest"] = block.highest;
    }
    PutItem(Text(json));
}

void JsonReport::OnLogEnd(const LogReport& log) {
    progress_.Clear();
    out_ << R"(],"files":[)";
    bool first = true;
    for (const FileReport& file : log.files) {
        out_ << (first ? "\n" : ",\n") << Text(FileJson(file));
        first = false;
    }
    out_ << "]," << SumsText(log) << '}';
}

void JsonReport::Finish(const std::vector<std::string>& errors, int status) {
    out_ << "],\n\"errors\":" << Text(errors) << ",\n\"status\":" << status << "}\n" << std::flush;
}
