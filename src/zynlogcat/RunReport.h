// Messages of zynlog-cat on standard error about the logs it reads, and the exit status that
// follows.
#ifndef ZYN_ZYNLOGCAT_RUNREPORT_H
#define ZYN_ZYNLOGCAT_RUNREPORT_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "LogReading/BlockWalker.h"
#include "LogReading/InputIssue.h"
#include "LogReading/LogData.h"
#include "zynlogcat/BlockRecords.h"

// One line for each message. Control characters of names are masked. The stream outlives it.
class RunReport final : public InputListener, public RecordDamageListener {
  public:
    static constexpr int kWell = 0;
    static constexpr int kDamaged = 1;
    static constexpr int kUnreadable = 2;

    // quiet: damage is not reported, but counts for the status.
    RunReport(std::ostream& out, bool quiet) noexcept : out_(out), quiet_(quiet) {}

    // The messages from now on are about one log: one file or input by itself, or a directory.
    void BeginLog(bool isDirectory) noexcept {
        data_ = nullptr;
        isDirectory_ = isDirectory;
        saidOfLog_ = false;
    }
    // Positions are of this data, which outlives the messages about it.
    void SetData(const LogData& data) noexcept { data_ = &data; }
    // The log has no log file.
    void OnEmptyLog(const std::string& path);
    void OnBlockDamage(const DamagedPlace& damage);
    void OnRecordDamage(std::uint64_t position, std::uint64_t bytes) override;
    void OnPacketDamage(std::uint64_t position) override;
    void OnIssue(const InputIssue& issue) override;

    // Something could not be read.
    void OnFailure(std::string_view text);
    // A message that does not change the status.
    void Say(std::string_view text);

    // The highest of all messages.
    [[nodiscard]] int Status() const noexcept { return status_; }

  private:
    void Raise(int status) noexcept { status_ = status > status_ ? status : status_; }
    void SayDamage(std::uint64_t position, std::string_view kind, const std::string& text);

    std::ostream& out_;
    bool quiet_;
    const LogData* data_ = nullptr;
    bool isDirectory_ = false;
    bool saidOfLog_ = false;
    int status_ = kWell;
};

#endif
