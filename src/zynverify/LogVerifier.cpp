#include "zynverify/LogVerifier.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "MultiFileStream/MultiFileStream.h"
#include "Support/FileSystem.h"
#include "TraceData/OutputSupport.h"
#include "TraceData/TraceDataReader.h"
#include "TraceData/ZynDataTextExporter.h"
#include "zynverify/Joined.h"
#include "zynverify/LogObserver.h"

namespace {

using LogStream = MultiFileInputStream<ZynBinaryFileOutputSupport, 256U>;

// Opens the files that can be opened, and reports the others and those that an export leaves out.
void OpenFiles(const LogToVerify& log, LogStream& stream, LogObserver& observer) {
    std::vector<std::string> usable;
    for (const std::string& name : log.files) {
        const std::string path = log.directory + "/" + name;
        try {
            const LogStream::FileToBeRead file(path);
            if (file.HasHeader()) {
                usable.push_back(name);
            } else {
                observer.ReportFile(FindingKind::kForeignFile, path, file.DataSize(),
                                    "does not begin with the header of a log file");
            }
        } catch (const std::logic_error&) {
            observer.ReportFile(FindingKind::kSmallFile, path, 0,
                                "is smaller than the header of a log file");
        } catch (const std::exception& failure) {
            observer.ReportFile(FindingKind::kUnreadable, path, 0, failure.what());
        }
    }
    stream.OpenLogFiles(log.directory, usable, "binary");
    observer.SetFiles(stream.Extents());
}

// What is wrong with a block of which not even the data could be read.
Finding LostBlock(const LogObserver& observer, const std::logic_error& failure) {
    Finding finding;
    finding.kind = FindingKind::kBlockCut;
    if (observer.HasHeader()) {
        finding.text = Joined("the block says that ", observer.DataSize(),
                              " bytes of data follow, which is more than the log has");
    } else if (std::string_view(failure.what()).find("length") != std::string_view::npos) {
        finding.kind = FindingKind::kBlockHeader;
        finding.text = "there is no block header where one should be";
    } else {
        finding.text = "the log ends within a block header";
    }
    return finding;
}

// The blocks of the log, as far as each one's size leads to the next.
void ReadBlocks(LogStream& stream, LogObserver& observer) {
    TraceBlockReader<LogObserver, kReorderLimit> reader;
    while (stream.BytesRead() < stream.TotalBytes()) {
        const std::uint64_t begin = stream.BytesRead();
        const std::uint64_t left = stream.Remaining();
        const auto stop = [&](Finding finding) {
            finding.bytes = left;
            finding.text += "; from here on nothing can be found";
            observer.Report(std::move(finding), begin);
        };
        observer.BeginBlock(begin);
        try {
            reader.Process(observer, stream);
        } catch (const std::logic_error& failure) {
            stop(LostBlock(observer, failure));
            return;
        } catch (const std::exception& failure) {
            stop({.kind = FindingKind::kUnreadable, .text = failure.what()});
            return;
        }
        observer.EndBlock(stream.BytesRead());
    }
}

[[noreturn]] void FailFor(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

LogToVerify DirectoryLog(const std::string& path) {
    if (access(path.c_str(), R_OK | X_OK) != 0) {
        FailFor(path);
    }
    LogToVerify log{path, path, {}};
    CFileSystem::FindAllFiles(path, "zynlog-", "txt", log.files);
    std::sort(log.files.begin(), log.files.end());
    return log;
}

}  // namespace

std::vector<LogToVerify> FindLogs(const std::vector<std::string>& paths, bool separate) {
    std::vector<LogToVerify> logs;
    std::map<std::string, std::size_t> logOfDirectory;
    for (const std::string& path : paths) {
        struct stat status {};
        if (stat(path.c_str(), &status) != 0) {
            FailFor(path);
        }
        const std::size_t slash = path.rfind('/');
        std::vector<LogToVerify> found;
        if (S_ISDIR(status.st_mode)) {
            found.push_back(DirectoryLog(path));
        } else if (slash == std::string::npos) {
            found.push_back({path, ".", {path}});
        } else {
            found.push_back({path, path.substr(0, slash), {path.substr(slash + 1)}});
        }
        if (separate && S_ISDIR(status.st_mode)) {
            const LogToVerify whole = std::move(found.front());
            found.clear();
            for (const std::string& name : whole.files) {
                found.push_back({whole.directory + "/" + name, whole.directory, {name}});
            }
        }
        for (LogToVerify& log : found) {
            const bool joins = !separate && !S_ISDIR(status.st_mode);
            const auto [place, fresh] = joins ? logOfDirectory.emplace(log.directory, logs.size())
                                              : std::pair(logOfDirectory.end(), true);
            if (fresh) {
                logs.push_back(std::move(log));
            } else {
                LogToVerify& joined = logs[place->second];
                joined.name = joined.directory;
                joined.files.push_back(std::move(log.files.front()));
            }
        }
    }
    for (LogToVerify& log : logs) {
        std::sort(log.files.begin(), log.files.end());
    }
    return logs;
}

LogReport VerifyLog(const LogToVerify& log, VerifyListener& listener) {
    LogObserver observer(log.name, listener);
    LogStream stream;
    OpenFiles(log, stream, observer);
    ReadBlocks(stream, observer);
    return observer.Finish();
}
