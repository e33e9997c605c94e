#include "zyntool/ExportCommandProcessor.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "LogReading/LogFiles.h"
#include "Support/FileSystem.h"
#include "TraceData/text/ZynDataTextExporter.h"
#include "ZynConfigFileReader/ConfiguredLog.h"

namespace {

constexpr const char* kExportPrefix = "EXPORT-";

std::string WithoutExtension(const std::string& name) {
    return name.size() < kLogExtension.size() ? name
                                              : name.substr(0, name.size() - kLogExtension.size());
}

std::optional<std::string> Find(const CommandLineParser::CommandOptions& options,
                                const std::string& name) {
    const auto found = options.find(name);
    return found == options.end() ? std::nullopt : std::optional(found->second);
}

std::string ValueOr(const std::optional<std::string>& value, const std::string& fallback) {
    return value && !value->empty() ? *value : fallback;
}

// The logs of a directory that are exported one by one: none of them may be overwritten by the text
// of another one.
class LogsOfOneRun {
  public:
    explicit LogsOfOneRun(std::string directory)
        : directory_(std::move(directory)),
          listing_(directory_, kLogPrefix, std::string(kLogExtension)) {}

    DirectoryListing& Listing() noexcept { return listing_; }

    // Listed only when it is needed, and again when the directory has changed. Files that have been
    // there before stay known: a rotation gives them other names.
    bool Contain(const FileIdentity& file) {
        const std::vector<std::string>& names = listing_.Names();
        if (known_ != listing_.Readings()) {
            known_ = listing_.Readings();
            for (const std::string& name : names) {
                struct stat status {};
                if (stat((directory_ + "/" + name).c_str(), &status) == 0) {
                    identities_.insert({status.st_dev, status.st_ino});
                }
            }
        }
        return identities_.contains(file);
    }

  private:
    std::string directory_;
    DirectoryListing listing_;
    std::set<FileIdentity> identities_;
    std::uint64_t known_ = 0;
};

bool HasFile(const LogStream& stream, const FileIdentity& file) {
    const std::vector<FileIdentity>& files = stream.Identities();
    return std::find(files.begin(), files.end(), file) != files.end();
}

std::uint64_t ExportInto(TextFile& file, LogStream& stream, const std::string& separator,
                         bool progress) {
    ProgressDisplay display(progress ? &std::cerr : nullptr);
    std::uint64_t records = 0;
    try {
        records = ZynDataTextExporter::Export<kReorderLimit>(stream, file, separator, display);
    } catch (...) {
        // The text before the failure is still held, and may not fit the disk either: that came
        // first.
        file.Flush();
        throw;
    }
    file.Close();
    return records;
}

// The stream's files are open before the destination is touched.
std::uint64_t ExportStream(LogStream& stream, const std::string& destination,
                           const std::string& separator, bool progress) {
    TextFile file(destination,
                  [&stream](const FileIdentity& there) { return HasFile(stream, there); });
    return ExportInto(file, stream, separator, progress);
}

// The file and the files that continue it: those whose names extend its base name.
void ExportOneSource(const std::string& path, const std::optional<std::string>& destination,
                     const std::string& separator, bool progress) {
    const std::size_t slash = path.rfind('/');
    const bool bare = slash == std::string::npos;
    const std::string name = bare ? path : path.substr(slash + 1);
    ZynExportFromDirectoryToSingleFile(
        bare ? "./" : path.substr(0, slash), WithoutExtension(name), std::string(kLogExtension),
        ValueOr(destination, kExportPrefix + name), separator, progress);
}

}  // namespace

void ExportCommandProcessor::Process(CommandLineParser::CommandOptions& options) {
    const auto directory = Find(options, "D");
    const auto source = Find(options, "S");
    const auto file = Find(options, "F");
    const auto multiple = Find(options, "M");
    const auto separatorOption = Find(options, "L");
    const std::string separator = separatorOption ? ValueOr(separatorOption, " ") : std::string();
    const bool progress = !options.contains("SILENT");

    if (source && !directory) {
        ExportOneSource(*source, file, separator, progress);
        return;
    }
    ConfiguredLog configured;
    if (!directory) {
        configured.Read();
    }
    const std::string& logs = directory ? *directory : configured.Path();
    // No configuration means no files, whereas an empty directory name would mean the root.
    const bool nothing = !directory && configured.IsEmpty();
    if (file && !multiple) {
        const std::string destination = ValueOr(file, "zynexport.txt");
        if (nothing) {
            LogStream stream;
            ExportStream(stream, destination, separator, progress);
        } else {
            ZynExportFromDirectoryToSingleFile(logs, kLogPrefix, kLogPart, destination, separator,
                                               progress);
        }
    } else if (!nothing) {
        ZynExportFromDirectoryToMultipleFiles(logs, ValueOr(multiple, "."), separator, progress);
    }
}

std::uint64_t ZynExportFromDirectoryToSingleFile(const std::string& directory,
                                                 const std::string& prefix, const std::string& part,
                                                 const std::string& destination,
                                                 const std::string& separator, bool progress) {
    LogStream stream;
    stream.GetAllLogFiles(directory, prefix, part, kLogFormat);
    return ExportStream(stream, destination, separator, progress);
}

std::uint64_t ZynExportFromDirectoryToMultipleFiles(const std::string& directory,
                                                    const std::string& destinationDirectory,
                                                    const std::string& separator, bool progress) {
    LogsOfOneRun logs(directory);
    DirectoryListing& listing = logs.Listing();
    const std::vector<std::string> names = listing.Names();
    std::uint64_t records = 0;
    for (const std::string& name : names) {
        const std::string base = WithoutExtension(name);
        std::string destination = destinationDirectory;
        destination.append("/").append(kExportPrefix).append(base).append(kLogExtension);
        LogStream stream;
        stream.OpenLogFiles(directory, listing.NamesWithPrefix(base), kLogFormat);
        // Text files in the log directory itself change it, but not what is listed there.
        const bool current = listing.IsCurrent();
        TextFile file(destination, [&](const FileIdentity& there) {
            return HasFile(stream, there) || logs.Contain(there);
        });
        if (current && file.IsNew()) {
            listing.TakeOwnChange();
        }
        records += ExportInto(file, stream, separator, progress);
    }
    return records;
}
