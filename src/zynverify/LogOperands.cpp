#include "zynverify/LogOperands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <map>
#include <system_error>
#include <utility>

#include "LogReading/LogFiles.h"
#include "LogReading/LogListing.h"
#include "zynverify/StandardInput.h"

namespace {

std::string Reason(const std::string& path) {
    return path + ": " + std::generic_category().message(errno);
}

// Notes the files of a log that are left out.
class NotedTwins final : public InputListener {
  public:
    explicit NotedTwins(std::vector<InputIssue>& twins) noexcept : twins_(twins) {}
    void OnIssue(const InputIssue& issue) override { twins_.push_back(issue); }

  private:
    std::vector<InputIssue>& twins_;
};

// Collects the logs operand by operand.
class Operands {
  public:
    explicit Operands(OperandOptions options) : options_(options) {}

    void Add(const std::string& path) {
        struct stat status {};
        if (path == "-") {
            AddStandardInput();
        } else if (stat(path.c_str(), &status) != 0) {
            found_.errors.push_back(Reason(path));
        } else if (S_ISDIR(status.st_mode)) {
            AddDirectory(path);
        } else {
            AddFile(path);
        }
    }

    FoundLogs Take() {
        for (LogToVerify& log : found_.logs) {
            NotedTwins twins(log.twins);
            log.files = SortedWithoutTwins(log.directory, std::move(log.files), twins);
        }
        if (options_.live) {
            MarkGrowing();
        }
        return std::move(found_);
    }

  private:
    void AddStandardInput() {
        const StandardInput input;
        found_.logs.push_back(
            {.name = "-", .directory = input.Directory(), .files = {input.Name()}, .shown = "-"});
    }

    void AddDirectory(const std::string& path) {
        if (access(path.c_str(), R_OK | X_OK) != 0) {
            found_.errors.push_back(Reason(path));
            return;
        }
        std::vector<std::string> names = LogFileNames(path);
        if (!options_.separate || names.empty()) {
            found_.logs.push_back({.name = path, .directory = path, .files = std::move(names)});
            return;
        }
        std::sort(names.begin(), names.end(), StandsBefore);
        for (const std::string& name : names) {
            found_.logs.push_back({.name = path + "/" + name, .directory = path, .files = {name}});
        }
    }

    void AddFile(const std::string& path) {
        const std::size_t slash = path.rfind('/');
        const bool bare = slash == std::string::npos;
        LogToVerify log{.name = path,
                        .directory = bare ? "." : path.substr(0, slash),
                        .files = {bare ? path : path.substr(slash + 1)}};
        if (options_.separate) {
            found_.logs.push_back(std::move(log));
            return;
        }
        const auto [place, fresh] = logOfDirectory_.emplace(log.directory, found_.logs.size());
        if (fresh) {
            found_.logs.push_back(std::move(log));
        } else {
            LogToVerify& joined = found_.logs[place->second];
            joined.name = joined.directory;
            joined.files.push_back(std::move(log.files.front()));
        }
    }

    // A log that has the last file of all that were named of its directory.
    void MarkGrowing() {
        std::map<std::string, std::string> newest;
        for (const LogToVerify& log : found_.logs) {
            for (const std::string& name : log.files) {
                std::string& last = newest[log.directory];
                last = std::max(last, name, StandsBefore);
            }
        }
        for (LogToVerify& log : found_.logs) {
            log.growing = !log.files.empty() && log.files.back() == newest[log.directory];
        }
    }

    OperandOptions options_;
    FoundLogs found_;
    std::map<std::string, std::size_t> logOfDirectory_;
};

}  // namespace

FoundLogs FindLogs(const std::vector<std::string>& paths, OperandOptions options) {
    Operands operands(options);
    for (const std::string& path : paths) {
        operands.Add(path);
    }
    return operands.Take();
}
