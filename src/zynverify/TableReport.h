// The report for people: a table of findings while the log is read, then one line per file and the
// sums.
#ifndef ZYN_ZYNVERIFY_TABLEREPORT_H
#define ZYN_ZYNVERIFY_TABLEREPORT_H

#include <cstdint>
#include <iosfwd>

#include "zynverify/Findings.h"
#include "zynverify/ProgressLine.h"

// Names from outside are shown without their control characters, which could be orders to a
// terminal. Times are local, as in an export. The stream and the progress line outlive it.
class TableReport final : public VerifyListener {
  public:
    // blocks: a line for each block too.
    TableReport(std::ostream& out, bool blocks, ProgressLine& progress)
        : out_(out), progress_(progress), blocks_(blocks) {}

    void OnLogBegin(const LogReport& log) override;
    void OnFinding(const Finding& finding) override;
    void OnBlock(const BlockReport& block) override;
    void OnProgress(std::uint64_t done, std::uint64_t total) override {
        progress_.Update(done, total);
    }
    void OnLogEnd(const LogReport& log) override;

  private:
    void PutHead();
    void PutFiles(const LogReport& log);
    void PutSums(const LogReport& log);

    std::ostream& out_;
    ProgressLine& progress_;
    bool blocks_;
    bool headed_ = false;
};

#endif
