#include "zynlogcat/CatRun.h"

#include <fcntl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/LogCursor.h"
#include "LogReading/LogFollower.h"
#include "LogReading/LogInput.h"
#include "LogReading/StreamDecoder.h"
#include "Support/FileDescriptor.h"
#include "Support/ValidationException.h"
#include "zynlogcat/BlockRecords.h"
#include "zynlogcat/MergedRecords.h"
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

// Between reading and writing: passes on the records that are selected.
class Chooser {
  public:
    Chooser(const Conditions& conditions, RecordSink& sink)
        : selection_(MakeSelection(conditions)), sink_(&sink) {}

    void Take(const TraceRecord& record) {
        if (selection_.Takes(record)) {
            sink_->Put(record);
        }
    }
    void BeginBlock() { sink_->BeginBlock(); }
    void EndBlock() { sink_->EndBlock(); }
    void SetSink(RecordSink& sink) noexcept { sink_ = &sink; }

  private:
    Selection selection_;
    RecordSink* sink_;
};

// SIGINT and SIGTERM as something that can be read, while it lives.
class StopSignals {
  public:
    StopSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        sigprocmask(SIG_BLOCK, &signals, &before_);
        errno = 0;
        file_ = FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
        ZYN_CHECK_OS_CALL(file_.IsOpen(), "Can not wait for signals");
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals() {
        // Signals that are pending have had their effect.
        std::array<char, sizeof(signalfd_siginfo)> one{};
        while (read(file_.Get(), one.data(), one.size()) > 0) {
        }
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }

    [[nodiscard]] int Descriptor() const noexcept { return file_.Get(); }

  private:
    sigset_t before_{};
    FileDescriptor file_;
};

class CatRun final : private FollowListener {
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
            chooser_.SetSink(tail_.emplace(
                *form_, *options.lines,
                options.merge ? RecordTail::Data::kOfCall : RecordTail::Data::kOfBlock));
        }
    }

    int Run() {
        if (options_.follow) {
            RefuseCompressed();
        }
        if (options_.follow || !options_.cursorFile.empty()) {
            Follow();
        } else if (options_.merge) {
            Merge();
        } else {
            for (const std::string& log : options_.logs) {
                ShowLog(log);
            }
        }
        EndForm();
        return report_.Status();
    }

    // Of what was read up to now.
    [[nodiscard]] int Status() const noexcept { return report_.Status(); }

  private:
    [[nodiscard]] LogEnd End() const noexcept {
        return options_.live ? LogEnd::kLive : LogEnd::kFinal;
    }
    std::unique_ptr<LogData> Open(const std::string& log);
    void ShowLog(const std::string& log);
    void ShowBlocks(LogData& data);
    void Merge();
    void RefuseCompressed();
    void Follow();
    void Wait(LogFollower& follower, int stop);
    void LoadCursor(LogFollower& follower);
    void StoreCursor(const LogFollower& follower);
    void FinishTail();
    void BeginForm();
    void EndForm();
    template <typename Action>
    bool Try(const std::string& log, Action&& action);

    void OnBlock(std::size_t log, const FoundBlock& block, LogData& data) override;
    void OnDamagedPlace(std::size_t log, const DamagedPlace& place, LogData& data) override;
    void OnIssue(const InputIssue& issue) override;

    const CatOptions& options_;
    TextFile& out_;
    RunReport report_;
    std::unique_ptr<OutputForm> form_;
    bool begun_ = false;
    std::optional<RecordTail> tail_;
    Chooser chooser_;
    BlockRecords<Chooser> records_;
    LogCursor cursor_;
};

// A log that cannot be read is reported, and the next one follows. A failed write ends the run.
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

// Null when there is nothing to read, which is reported.
std::unique_ptr<LogData> CatRun::Open(const std::string& log) {
    std::unique_ptr<LogData> data;
    report_.BeginLog(IsDirectory(log));
    const LogInputOptions input{.since = SinceSeconds(options_.conditions),
                                .readableTwice = options_.merge};
    if (!Try(log, [&] { data = OpenLog(log, report_, input); })) {
        return nullptr;
    }
    if (data->Empty()) {
        report_.OnEmptyLog(log);
        return nullptr;
    }
    report_.SetData(*data);
    BeginForm();
    return data;
}

void CatRun::ShowLog(const std::string& log) {
    if (const std::unique_ptr<LogData> data = Open(log)) {
        Try(log, [&] { ShowBlocks(*data); });
    }
}

void CatRun::ShowBlocks(LogData& data) {
    BlockWalker walker(data, End());
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

void CatRun::Merge() {
    std::vector<std::unique_ptr<LogData>> opened;
    std::vector<LogData*> logs;
    for (const std::string& log : options_.logs) {
        if (std::unique_ptr<LogData> data = Open(log)) {
            logs.push_back(data.get());
            opened.push_back(std::move(data));
        }
    }
    Try("--merge", [&] {
        const auto merged = std::make_unique<MergedRecords>(logs, End(), report_);
        for (TraceRecord record; merged->Next(record);) {
            chooser_.Take(record);
        }
    });
}

// They do not grow.
void CatRun::RefuseCompressed() {
    for (const std::string& log : options_.logs) {
        if (IsDirectory(log)) {
            continue;
        }
        const FileDescriptor file(open(log.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        std::array<char, kCompressionMarkBytes> mark{};
        const ssize_t count =
            file.IsOpen() ? pread(file.Get(), mark.data(), mark.size(), 0) : ssize_t{-1};
        if (count > 0 && RecognizeCompression({mark.data(), static_cast<std::size_t>(count)}) !=
                             Compression::kNone) {
            throw CatUsageError("--follow: " + log + " is compressed");
        }
    }
}

// Reads what is there, from where the cursor is if there is one, and goes on with what comes.
void CatRun::Follow() {
    const std::optional<StopSignals> stop =
        options_.follow ? std::optional<StopSignals>(std::in_place) : std::nullopt;
    Try(options_.follow ? "--follow" : options_.logs.front(), [&] {
        report_.BeginLog(IsDirectory(options_.logs.front()));
        LogFollower follower(options_.logs, *this);
        if (!options_.follow && follower.Files(0).empty()) {
            report_.OnEmptyLog(options_.logs.front());
            return;
        }
        BeginForm();
        LoadCursor(follower);
        follower.Look();
        FinishTail();
        if (options_.follow) {
            Wait(follower, stop->Descriptor());
        }
        // Also the sums are there before the cursor moves.
        EndForm();
        StoreCursor(follower);
    });
}

void CatRun::Wait(LogFollower& follower, int stop) {
    std::optional<std::chrono::steady_clock::time_point> stored;
    for (;;) {
        out_.Flush();
        if (const auto now = std::chrono::steady_clock::now();
            !stored || now - *stored >= std::chrono::seconds(1)) {
            StoreCursor(follower);
            stored = now;
        }
        if (follower.Wait(stop, STDOUT_FILENO) != LogFollower::Event::kLook) {
            return;
        }
        follower.Look();
    }
}

void CatRun::LoadCursor(LogFollower& follower) {
    if (options_.cursorFile.empty()) {
        return;
    }
    const std::optional<LogCursor> loaded = LogCursor::Load(options_.cursorFile);
    if (!loaded) {
        return;
    }
    cursor_ = *loaded;
    std::vector<FilePlace> files = follower.Files(0);
    if (!cursor_.Find(files)) {
        report_.Say(options_.cursorFile + ": its place is gone; beginning with the oldest");
        return;
    }
    for (const FilePlace& file : files) {
        follower.BeginAt(file.path, file.offset);
    }
}

// Behind the output: what was not written out is shown once more the next time.
void CatRun::StoreCursor(const LogFollower& follower) {
    if (!options_.cursorFile.empty()) {
        cursor_ = LogCursor::At(follower.Places(0), cursor_);
        cursor_.Store(options_.cursorFile);
    }
}

void CatRun::FinishTail() {
    if (tail_) {
        chooser_.SetSink(*form_);
        tail_->Finish();
        tail_.reset();
    }
}

// Of a log that cannot be read nothing is shown, not even the header of an output.
void CatRun::BeginForm() {
    if (!begun_) {
        begun_ = true;
        form_->Begin();
    }
}

void CatRun::EndForm() {
    if (!begun_) {
        return;
    }
    begun_ = false;
    FinishTail();
    form_->End();
    out_.Flush();
    if (const std::string remark = form_->Remark(); !remark.empty()) {
        report_.Say(remark);
    }
}

void CatRun::OnBlock(std::size_t /*log*/, const FoundBlock& block, LogData& data) {
    report_.SetData(data);
    records_.Read(block, data);
}

void CatRun::OnIssue(const InputIssue& issue) {
    const bool isLog =
        std::find(options_.logs.begin(), options_.logs.end(), issue.path) != options_.logs.end();
    report_.BeginLog(!isLog);
    report_.OnIssue(issue);
}

void CatRun::OnDamagedPlace(std::size_t /*log*/, const DamagedPlace& place, LogData& data) {
    report_.SetData(data);
    report_.OnBlockDamage(place);
}

}  // namespace

int RunCat(const CatOptions& options, const CatTerminal& terminal, TextFile& out,
           std::ostream& errors) {
    // Not on the stack, for which it is large: a stack that cannot grow ends the program by a
    // signal, and want of memory is to be reported.
    const auto run = std::make_unique<CatRun>(options, terminal, out, errors);
    try {
        return run->Run();
    } catch (const std::exception&) {
        // A closed pipe ends the program quietly.
        if (out.Failure() == EPIPE) {
            return run->Status();
        }
        throw;
    }
}
