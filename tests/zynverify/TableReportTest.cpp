#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "zynverify/TableReport.h"

namespace {

class TableReportTest : public testing::Test {
  protected:
    static Finding At(const std::string& file, std::uint64_t offset, const std::string& text) {
        Finding finding;
        finding.kind = FindingKind::kGap;
        finding.file = file;
        finding.offset = offset;
        finding.block = offset == 0 ? 0 : 1;
        finding.text = text;
        return finding;
    }
    // Of the gaps that have been reported.
    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        std::istringstream lines(out_.str());
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" gap ") != std::string::npos) {
                texts.push_back(line.substr(line.rfind(' ') + 1));
            }
        }
        return texts;
    }

    std::ostringstream out_;
    ProgressLine progress_{nullptr};
    TableReport report_{out_, true, progress_};
    LogReport log_;
};

TEST_F(TableReportTest, FindingsAreSortedByFileAndOffset) {
    report_.OnLogBegin(log_);
    report_.OnFinding(At("", 0, "nowhere"));
    report_.OnFinding(At("d/zynlog-2.txt", 300, "e"));
    report_.OnFinding(At("d/zynlog-1.txt", 1000, "c"));
    report_.OnFinding(At("d/zynlog-2.txt", 0, "d"));
    report_.OnFinding(At("d/zynlog-1.txt", 999, "a"));
    report_.OnFinding(At("d/zynlog-1.txt", 999, "b"));
    report_.OnLogEnd(log_);
    EXPECT_EQ(Texts(), (std::vector<std::string>{"a", "b", "c", "d", "e", "nowhere"}));
}

TEST_F(TableReportTest, FindingsWithoutEndAreReportedInParts) {
    report_.OnLogBegin(log_);
    for (std::uint64_t i = 9999; i != 0; --i) {
        report_.OnFinding(At("f", i, std::to_string(i)));
    }
    EXPECT_EQ(Texts().size(), 0U) << "they are to be sorted";
    report_.OnFinding(At("f", 10000, "10000"));
    EXPECT_EQ(Texts().size(), 10000U);
    EXPECT_EQ(Texts().front(), "1");
    EXPECT_EQ(Texts().back(), "10000");
}

TEST_F(TableReportTest, WhatIsLostStandsFirst) {
    report_.OnLogBegin(log_);
    Finding finding = At("f", 5, "x");
    finding.kind = FindingKind::kRecord;
    finding.bytes = 44;
    report_.OnFinding(finding);
    finding.kind = FindingKind::kUnfinished;
    report_.OnFinding(finding);
    finding.kind = FindingKind::kZeros;
    report_.OnFinding(finding);
    log_.name = "the\x1blog";
    log_.records = 7;
    log_.exported = 3;
    log_.missing = 2;
    report_.OnLogEnd(log_);
    const std::string text = out_.str();
    EXPECT_EQ(text.substr(text.find("\n\n")),
              "\n\nan export loses 4 of 7 records that can be read, and what was in 44 damaged "
              "bytes\n"
              "zynlog-verify --salvage NEW_DIRECTORY the?log copies what is good\n"
              "sequence numbers: 2 missing, 0 twice, 0 more than 1000 places out of order\n"
              "0 files, 0 blocks, 7 records that can be read; an export writes 3 of them\n"
              "clean\n");
}

}  // namespace
