// A diagnosis as people read it, and as programs do.
#ifndef ZYN_ZYNDOCTOR_DIAGNOSISREPORT_H
#define ZYN_ZYNDOCTOR_DIAGNOSISREPORT_H

#include <iosfwd>

#include "zyndoctor/Diagnosis.h"

// One line a remark, indented; "!!" marks findings and "??" what could not be looked at. Control
// characters are escaped: no file name drives the reader's terminal.
void WriteText(std::ostream& out, const Diagnosis& diagnosis);

// One JSON document: {"program", "version", "sections": [{"title", "remarks": [{"kind", "code",
// "text"}]}], "findings", "unknown", "status"}. Bytes that are not UTF-8 are replaced.
void WriteJson(std::ostream& out, const Diagnosis& diagnosis);

#endif
