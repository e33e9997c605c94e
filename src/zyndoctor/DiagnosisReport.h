// A diagnosis as people read it, and as programs do.
#ifndef ZYN_ZYNDOCTOR_DIAGNOSISREPORT_H
#define ZYN_ZYNDOCTOR_DIAGNOSISREPORT_H

#include <iosfwd>
#include <string>
#include <string_view>

#include "zyndoctor/Diagnosis.h"

// The text with control characters as "\x1b", so that no file name drives the reader's terminal.
[[nodiscard]] std::string Printable(std::string_view text);

// One line a remark, indented; "!!" marks findings and "??" what could not be looked at.
void WriteText(std::ostream& out, const Diagnosis& diagnosis);

// One JSON document: {"program", "version", "sections": [{"title", "remarks": [{"kind", "code",
// "text"}]}], "findings", "unknown", "status"}. Bytes that are not UTF-8 are replaced.
void WriteJson(std::ostream& out, const Diagnosis& diagnosis);

#endif
