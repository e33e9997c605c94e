// The report for people: a table of findings, then one line per file and the sums, in which what is
// lost comes first.
#ifndef ZYN_ZYNVERIFY_TABLEREPORT_H
#define ZYN_ZYNVERIFY_TABLEREPORT_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "zynverify/Findings.h"
#include "zynverify/ProgressLine.h"

// Findings are sorted by file and offset; some thousands at most are held, more are reported in
// parts. Control characters of names are masked. Times are local, as in an export. The stream and
// the progress line outlive it.
class TableReport final : public VerifyListener {
  public:
    static constexpr std::size_t kDefaultWidth = 100;

    // blocks: a line for each block too. width: in characters, which the lines keep to as far as
    // the columns of numbers let them.
    TableReport(std::ostream& out, bool blocks, ProgressLine& progress,
                std::size_t width = kDefaultWidth)
        : out_(out), progress_(progress), width_(width), blocks_(blocks) {}

    void OnLogBegin(const LogReport& log) override;
    void OnFinding(const Finding& finding) override;
    void OnBlock(const BlockReport& block) override;
    void OnProgress(std::uint64_t done, std::uint64_t total) override {
        progress_.Update(done, total);
    }
    void OnLogEnd(const LogReport& log) override;

  private:
    // What lies where.
    struct Row {
        std::string file;
        std::uint64_t offset;
        std::uint64_t block;
        std::string_view kind;
        std::uint64_t bytes;
        std::string records;
        std::vector<std::string> what;
    };

    void Add(Row row);
    void PutRows();
    void PutFiles(const LogReport& log);
    void PutSums(const LogReport& log);

    std::ostream& out_;
    ProgressLine& progress_;
    std::size_t width_;
    std::vector<Row> rows_;
    std::uint64_t lostBytes_ = 0;  // of the log
    bool blocks_;
    bool headed_ = false;
};

#endif
