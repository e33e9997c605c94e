#include "zyndoctor/DiagnosisReport.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <string_view>
#include <utility>

#include "Support/PrintableText.h"

namespace {

constexpr std::string_view Mark(RemarkKind kind) {
    switch (kind) {
        case RemarkKind::kFinding:
            return "!! ";
        case RemarkKind::kUnknown:
            return "?? ";
        case RemarkKind::kFact:
            break;
    }
    return "   ";
}

constexpr std::string_view KindName(RemarkKind kind) {
    switch (kind) {
        case RemarkKind::kFinding:
            return "finding";
        case RemarkKind::kUnknown:
            return "unknown";
        case RemarkKind::kFact:
            break;
    }
    return "fact";
}

// In the order in which the members are put in.
using Json = nlohmann::ordered_json;

}  // namespace

void WriteText(std::ostream& out, const Diagnosis& diagnosis) {
    for (const DiagnosisSection& section : diagnosis.Sections()) {
        out << section.title << '\n';
        for (const Remark& remark : section.remarks) {
            out << Mark(remark.kind) << EscapedControls(remark.text) << '\n';
        }
    }
    if (diagnosis.Unknown() != 0) {
        out << "Not looked at: " << diagnosis.Unknown() << '\n';
    }
    if (diagnosis.Findings() != 0) {
        out << "Findings: " << diagnosis.Findings() << '\n';
    } else if (diagnosis.Unknown() == 0) {
        out << "Nothing wrong found.\n";
    }
}

void WriteJson(std::ostream& out, const Diagnosis& diagnosis) {
    Json sections = Json::array();
    for (const DiagnosisSection& section : diagnosis.Sections()) {
        Json remarks = Json::array();
        for (const Remark& remark : section.remarks) {
            remarks.push_back(
                {{"kind", KindName(remark.kind)}, {"code", remark.code}, {"text", remark.text}});
        }
        sections.push_back({{"title", section.title}, {"remarks", std::move(remarks)}});
    }
    const Json document{{"program", "zyn-doctor"},         {"version", ZYN_VERSION},
                        {"sections", std::move(sections)}, {"findings", diagnosis.Findings()},
                        {"unknown", diagnosis.Unknown()},  {"status", diagnosis.Status()}};
    out << document.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
}
