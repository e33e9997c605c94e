#include "zynlogcat/CatRun.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "LogReading/BlockWalker.h"
#include "LogReading/LogInput.h"
#include "zynlogcat/BlockRecords.h"
#include "zynlogcat/OutputForm.h"
#include "zynlogcat/RecordTail.h"
#include "zynlogcat/RunReport.h"
#include "zynlogcat/Selection.h"

namespace {

bool IsDirectory(const std::string& path) {
    struct stat status {};
    return path != "-" && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Selection MakeSelection(const Conditions& conditions) {
    try {
        return Selection(conditions);
    } catch (const std::invalid_argument& mistake) {
        throw CatUsageError(std::string("--grep: ") + mistake.what());
    }
}

// Whole seconds, downwards.
std::optional<std::int64_t> SinceSeconds(const Conditions& conditions) {
    if (!conditions.since) {
        return std::nullopt;
    }
    const std::int64_t since = *conditions.since;
    return since / 1000 - (since % 1000 < 0 ? 1 : 0);
}

// Between reading and writing: hands the records on that are wanted.
class Chooser {
  public:
    Chooser(const Conditions& conditions, RecordSink& sink)
        : selection_(MakeSelection(conditions)), sink_(&sink) {}

    void Take(const TraceRecord& record) {
        if (selection_.Takes(record)) {
            sink_->Put(record);
        }
    }
    void SetSink(RecordSink& sink) noexcept { sink_ = &sink; }

  private:
    Selection selection_;
    RecordSink* sink_;
};

class CatRun {
  public:
    CatRun(const CatOptions& options, const CatTerminal& terminal, TextFile& out,
           std::ostream& errors)
        : options_(options),
          out_(out),
          report_(errors, options.quiet),
          form_(FindForm(options.form)
                    ->make(out, {.header = options.header,
                                 .terminal = terminal.isTerminal,
                                 .colors = terminal.colors,
                                 .beginLabel = options.beginLabel,
                                 .endLabel = options.endLabel})),
          chooser_(options.conditions, *form_),
          records_(report_, chooser_) {
        if (options.lines) {
            chooser_.SetSink(tail_.emplace(*form_, *options.lines));
        }
    }

    int Run() {
        if (options_.follow || options_.merge || !options_.cursorFile.empty()) {
            throw CatUsageError("--follow, --merge and --cursor-file are not there yet");
        }
        form_->Begin();
        for (const std::string& log : options_.logs) {
            ShowLog(log);
        }
        if (tail_) {
            tail_->Finish();
        }
        form_->End();
        out_.Flush();
        if (const std::string remark = form_->Remark(); !remark.empty()) {
            report_.Say(remark);
        }
        return report_.Status();
    }

    // Of what was read up to now.
    [[nodiscard]] int Status() const noexcept { return report_.Status(); }

  private:
    void ShowLog(const std::string& log);
    void ShowBlocks(LogData& data);
    template <typename Action>
    bool Try(const std::string& log, Action&& action);

    const CatOptions& options_;
    TextFile& out_;
    RunReport report_;
    std::unique_ptr<OutputForm> form_;
    std::optional<RecordTail> tail_;
    Chooser chooser_;
    BlockRecords<Chooser> records_;
};

// What cannot be read is said, and the next log's turn comes. What cannot be written ends the run.
template <typename Action>
bool CatRun::Try(const std::string& log, Action&& action) {
    try {
        action();
        return true;
    } catch (const std::exception& failure) {
        if (out_.Failure() != 0) {
            throw;
        }
        const std::string text = failure.what();
        report_.OnFailure(text.starts_with(log) ? text : log + ": " + text);
        return false;
    }
}

void CatRun::ShowLog(const std::string& log) {
    std::unique_ptr<LogData> data;
    report_.BeginLog(IsDirectory(log));
    const LogInputOptions input{.since = SinceSeconds(options_.conditions)};
    if (!Try(log, [&] { data = OpenLog(log, report_, input); })) {
        return;
    }
    if (data->Empty()) {
        report_.OnEmptyLog(log);
        return;
    }
    report_.SetData(*data);
    Try(log, [&] { ShowBlocks(*data); });
}

void CatRun::ShowBlocks(LogData& data) {
    BlockWalker walker(data, options_.live ? LogEnd::kLive : LogEnd::kFinal);
    for (;;) {
        switch (walker.Next()) {
            case BlockWalker::Step::kBlock:
                records_.Read(walker.Block(), data);
                break;
            case BlockWalker::Step::kDamage:
                report_.OnBlockDamage(walker.Damage());
                break;
            case BlockWalker::Step::kEnd:
            case BlockWalker::Step::kUnfinished:
                return;
        }
    }
}

}  // namespace

int RunCat(const CatOptions& options, const CatTerminal& terminal, TextFile& out,
           std::ostream& errors) {
    CatRun run(options, terminal, out, errors);
    try {
        return run.Run();
    } catch (const std::exception&) {
        // Who has read enough of a pipe wants to hear no more.
        if (out.Failure() == EPIPE) {
            return run.Status();
        }
        throw;
    }
}
