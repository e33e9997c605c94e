// The report for programs: one JSON document, written while the logs are read, so that memory does
// not grow with the findings.
#ifndef ZYN_ZYNVERIFY_JSONREPORT_H
#define ZYN_ZYNVERIFY_JSONREPORT_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "zynverify/Findings.h"
#include "zynverify/ProgressLine.h"

// {"program", "version", "logs": [{"log", "items": [...], "files": [...], sums}], "errors",
// "status"}; the manual page names all members. Bytes of names that are not UTF-8 are replaced. The
// stream and the progress line outlive it.
class JsonReport final : public VerifyListener {
  public:
    // blocks: an item for each block too.
    JsonReport(std::ostream& out, bool blocks, ProgressLine& progress);

    void OnLogBegin(const LogReport& log) override;
    void OnFinding(const Finding& finding) override;
    void OnBlock(const BlockReport& block) override;
    void OnProgress(std::uint64_t done, std::uint64_t total) override {
        progress_.Update(done, total);
    }
    void OnLogEnd(const LogReport& log) override;

    // Ends the document. errors: operands that could not be opened.
    void Finish(const std::vector<std::string>& errors, int status);

  private:
    void PutItem(const std::string& json);

    std::ostream& out_;
    ProgressLine& progress_;
    bool blocks_;
    bool firstLog_ = true;
    bool firstItem_ = true;
};

#endif
