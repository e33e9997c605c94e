#include "zynverify/LogVerifier.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "LogReading/LogFiles.h"
#include "TraceData/BlockCursor.h"
#include "TraceData/Damage.h"
#include "TraceData/OrderedRecords.h"
#include "TraceData/RecordDecoder.h"
#include "TraceData/RecordSplitter.h"
#include "zynverify/Joined.h"
#include "zynverify/LogObserver.h"

namespace {

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
    stream.OpenLogFiles(log.directory, usable, kLogFormat);
    observer.SetFiles(stream.Extents());
}

constexpr const char* kNothingBehind = "; from here on nothing can be found";

// What is wrong with a block whose header cannot be read.
Finding LostHeader(Damage damage) {
    if (damage == Damage::kNoHeader) {
        return {.kind = FindingKind::kBlockHeader,
                .text = "there is no block header where one should be"};
    }
    return {.kind = FindingKind::kBlockCut, .text = "the log ends within a block header"};
}

Finding LostData(std::uint32_t size) {
    return {.kind = FindingKind::kBlockCut,
            .text = Joined("the block says that ", size,
                           " bytes of data follow, which is more than the log has")};
}

// Reads a log block by block, as far as each one's size leads to the next.
class LogPass {
  public:
    LogPass(LogStream& stream, LogObserver& observer) : stream_(stream), observer_(observer) {}

    void ReadAll() {
        while (stream_.Remaining() != 0) {
            const std::uint64_t begin = stream_.BytesRead();
            const std::uint64_t left = stream_.Remaining();
            observer_.BeginBlock(begin);
            if (std::optional<Finding> lost = ReadBlock()) {
                lost->bytes = left;
                lost->text += kNothingBehind;
                observer_.Report(std::move(*lost), begin);
                return;
            }
            observer_.EndBlock(stream_.BytesRead());
        }
    }

  private:
    // The finding behind which there is nothing more.
    std::optional<Finding> ReadBlock() {
        try {
            if (const Damage damage = blocks_.ReadHeader(stream_); damage != Damage::kNone) {
                return LostHeader(damage);
            }
            const BlockHeader& header = blocks_.Header();
            observer_.OnBlockHeader(header);
            if (header.dataSize == 0) {
                return std::nullopt;
            }
            if (blocks_.ReadData(stream_) != Damage::kNone) {
                return LostData(header.dataSize);
            }
        } catch (const std::exception& failure) {
            return Finding{.kind = FindingKind::kUnreadable, .text = failure.what()};
        }
        observer_.OnBlock(stream_.BytesRead(), stream_.TotalBytes());
        ReadRecords();
        return std::nullopt;
    }

    // Damage is reported where the records before it have been read, not yet put in order.
    void ReadRecords() {
        records_.Open(blocks_.Data(), blocks_.Header().dataSize);
        bool reported = false;
        PlacedRecord record;
        for (bool more = true; more;) {
            more = records_.Next(record);
            if (!reported && records_.FoundDamage() != Damage::kNone) {
                reported = true;
                observer_.OnBlockDamage(records_.FoundDamage(), records_.DamageOffset());
            }
            if (more) {
                observer_.OnRecord(record, decoder_.Decode(record.data, record.length));
            }
        }
    }

    LogStream& stream_;
    LogObserver& observer_;
    BlockCursor blocks_;
    OrderedRecords<kReorderLimit> records_;
    RecordDecoder decoder_;
};

[[noreturn]] void FailFor(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

LogToVerify DirectoryLog(const std::string& path) {
    if (access(path.c_str(), R_OK | X_OK) != 0) {
        FailFor(path);
    }
    return {path, path, LogFileNames(path)};
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
    std::make_unique<LogPass>(stream, observer)->ReadAll();
    return observer.Finish();
}
