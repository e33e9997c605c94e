#include "zyntool/ExportCommandProcessor.h"

#include <cstddef>
#include <iostream>
#include <optional>
#include <string_view>
#include <vector>

#include "MultiFileStream/MultiFileStream.h"
#include "Support/ConfigPath.h"
#include "Support/FileSystem.h"
#include "Support/RuntimeInfo.h"
#include "TraceData/ZynDataTextExporter.h"
#include "ZynConfigFileReader/ConfigProcessors.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"

namespace {

using LogStream = MultiFileInputStream<ZynBinaryFileOutputSupport, 256U>;
static_assert(LogStream::kReadSlack >= LegacyZynRecord::kReadSlack);

constexpr std::string_view kLogExtension = ".txt";
constexpr const char* kLogFormat = "binary";
constexpr const char* kExportPrefix = "EXPORT-";

std::string WithoutExtension(const std::string& name) {
    return name.size() < kLogExtension.size() ? name
                                              : name.substr(0, name.size() - kLogExtension.size());
}

std::string ConfiguredLogDirectory() {
    MyConfigProcessor processor;
    ZynConfigFileReader<MyConfigProcessor> reader(processor);
    reader.Read(ZynConfigPathPolicy());
    return CRuntimeInfo::FormatEnvironmentVariables(reader.LogPath());
}

std::optional<std::string> Find(const CommandLineParser::CommandOptions& options,
                                const std::string& name) {
    const auto found = options.find(name);
    return found == options.end() ? std::nullopt : std::optional(found->second);
}

std::string ValueOr(const std::optional<std::string>& value, const std::string& fallback) {
    return value && !value->empty() ? *value : fallback;
}

// The stream's files are open before the destination is touched.
std::uint64_t ExportStream(LogStream& stream, const std::string& destination,
                           const std::string& separator, bool progress) {
    TextFile file(destination, stream.Identities());
    ProgressDisplay display(progress ? &std::cerr : nullptr);
    const std::uint64_t records = ZynDataTextExporter::Export(stream, file, separator, display);
    file.Close();
    return records;
}

// The file and the files that continue it: those whose names extend its base name.
void ExportOneSource(const std::string& path, const std::optional<std::string>& destination,
                     const std::string& separator, bool progress) {
    const std::size_t slash = path.rfind('/');
    const bool bare = slash == std::string::npos;
    const std::string name = bare ? path : path.substr(slash + 1);
    ZynExportFromDirectoryToSingleFile(
        {bare ? "./" : path.substr(0, slash), WithoutExtension(name), std::string(kLogExtension)},
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
    const std::string logs = directory ? *directory : ConfiguredLogDirectory();
    // No configuration means no files, whereas an empty directory name would mean the root.
    const bool nothing = !directory && logs.empty();
    if (file && !multiple) {
        const std::string destination = ValueOr(file, "zynexport.txt");
        if (nothing) {
            LogStream stream;
            ExportStream(stream, destination, separator, progress);
        } else {
            ZynExportFromDirectoryToSingleFile({logs, "zynlog-", "txt"}, destination, separator,
                                               progress);
        }
    } else if (!nothing) {
        ZynExportFromDirectoryToMultipleFiles(logs, ValueOr(multiple, "."), separator, progress);
    }
}

std::uint64_t ZynExportFromDirectoryToSingleFile(const LogFileSelection& source,
                                                 const std::string& destination,
                                                 const std::string& separator, bool progress) {
    LogStream stream;
    stream.GetAllLogFiles(source.directory, source.prefix, source.part, kLogFormat);
    return ExportStream(stream, destination, separator, progress);
}

std::uint64_t ZynExportFromDirectoryToMultipleFiles(const std::string& directory,
                                                    const std::string& destinationDirectory,
                                                    const std::string& separator, bool progress) {
    DirectoryListing listing(directory, "zynlog-", std::string(kLogExtension));
    const std::vector<std::string> names = listing.Names();
    std::uint64_t records = 0;
    for (const std::string& name : names) {
        const std::string base = WithoutExtension(name);
        std::string destination = destinationDirectory;
        destination.append("/").append(kExportPrefix).append(base).append(kLogExtension);
        LogStream stream;
        stream.OpenLogFiles(directory, listing.NamesWithPrefix(base), kLogFormat);
        records += ExportStream(stream, destination, separator, progress);
    }
    return records;
}
