// The command "export": binary trace logs into text files.
#ifndef ZYN_ZYNTOOL_EXPORTCOMMANDPROCESSOR_H
#define ZYN_ZYNTOOL_EXPORTCOMMANDPROCESSOR_H

#include <cstdint>
#include <string>

#include "CommandProcess/CmdProcess.h"

// Options: "D" directory of logs, "S" one log (when "D" is absent), "F" one text file, "M"
// directory for one text file per log (wins over "F"; ignored with "S"), "L" column separator,
// "SILENT" no progress display. Existing text files are overwritten; no directory is created.
class ExportCommandProcessor final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override;
};

// Exports the files of a directory whose names begin with prefix and contain part, read as one
// stream, into one text file; returns the number of records. progress: draw on standard error. The
// files are listed and opened before the destination is touched; a destination that is one of them
// is refused, also when it is one that is not read. Throws what MultiFileInputStream, TextFile and
// ZynDataTextExporter throw; the destination then has every line before the failure.
std::uint64_t ZynExportFromDirectoryToSingleFile(const std::string& directory,
                                                 const std::string& prefix, const std::string& part,
                                                 const std::string& destination,
                                                 const std::string& separator, bool progress);

// Exports each log file "zynlog-...txt" of a directory into "EXPORT-<name>" of its own in the
// destination directory; returns the number of records of all. The first failure ends it; finished
// files stay. No file of any of these logs is overwritten.
std::uint64_t ZynExportFromDirectoryToMultipleFiles(const std::string& directory,
                                                    const std::string& destinationDirectory,
                                                    const std::string& separator, bool progress);

#endif
