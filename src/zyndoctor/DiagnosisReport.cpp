#include "zyndoctor/DiagnosisReport.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>

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

constexpr bool IsUpperControl(unsigned char byte) { return byte >= 0x80 && byte < 0xA0; }

// In the order in which the members are put in.
using Json = nlohmann::ordered_json;

}  // namespace

std::string Printable(std::string_view text) {
    std::string printable;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
        const auto last = static_cast<unsigned char>(i > 0 ? text[i - 1] : '\0');
        // The upper control characters are one byte each, or 0xC2 and that byte in UTF-8, where the
        // same bytes also end other characters.
        const bool leadsControl = byte == 0xC2 && IsUpperControl(next);
        const bool upperControl = IsUpperControl(byte) && (last < 0x80 || last == 0xC2);
        if (byte < ' ' || byte == 0x7F || leadsControl || upperControl) {
            std::array<char, 5> escape{};
            static_cast<void>(std::snprintf(escape.data(), escape.size(), "\\x%02x", byte));
            printable += escape.data();
        } else {
            printable += text[i];
        }
    }
    return printable;
}

void WriteText(std::ostream& out, const Diagnosis& diagnosis) {
    for (const DiagnosisSection& section : diagnosis.Sections()) {
        out << section.title << '\n';
        for (const Remark& remark : section.remarks) {
            out << Mark(remark.kind) << Printable(remark.text) << '\n';
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
