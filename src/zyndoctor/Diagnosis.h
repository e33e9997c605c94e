// The result of examining a host: facts, findings and what could not be examined, in sections. The
// checks fill it in; the reports for people and for programs are made of it.
#ifndef ZYN_ZYNDOCTOR_DIAGNOSIS_H
#define ZYN_ZYNDOCTOR_DIAGNOSIS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

enum class RemarkKind : std::uint8_t {
    kFact,
    kFinding,  // something is wrong, or will be
    kUnknown,  // could not be looked at
};

struct Remark {
    RemarkKind kind{};
    std::string code;  // what it is about, for programs; stays the same between releases
    std::string text;  // for people; may hold any byte that a file name or a variable may
};

struct DiagnosisSection {
    std::string title;
    std::vector<Remark> remarks;
};

class Diagnosis {
  public:
    static constexpr int kClean = 0;
    static constexpr int kFindings = 1;
    static constexpr int kCouldNotLook = 2;

    // The remarks that follow belong to a section of this title.
    void Begin(std::string title) { sections_.push_back({std::move(title), {}}); }

    // Each needs a section to be in.
    void Say(std::string code, std::string text) {
        Add(RemarkKind::kFact, std::move(code), std::move(text));
    }
    void Find(std::string code, std::string text) {
        ++findings_;
        Add(RemarkKind::kFinding, std::move(code), std::move(text));
    }
    void MissOut(std::string code, std::string text) {
        ++unknown_;
        Add(RemarkKind::kUnknown, std::move(code), std::move(text));
    }

    [[nodiscard]] const std::vector<DiagnosisSection>& Sections() const noexcept {
        return sections_;
    }
    [[nodiscard]] std::size_t Findings() const noexcept { return findings_; }
    [[nodiscard]] std::size_t Unknown() const noexcept { return unknown_; }
    // The exit status: what could not be looked at outweighs a finding.
    [[nodiscard]] int Status() const noexcept {
        return unknown_ != 0 ? kCouldNotLook : findings_ != 0 ? kFindings : kClean;
    }

  private:
    void Add(RemarkKind kind, std::string code, std::string text) {
        sections_.back().remarks.push_back({kind, std::move(code), std::move(text)});
    }

    std::vector<DiagnosisSection> sections_;
    std::size_t findings_ = 0;
    std::size_t unknown_ = 0;
};

#endif
