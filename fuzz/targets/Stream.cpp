// A log in one file, and cut over several: where the cuts lie must not show.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "LogReading/LogFiles.h"
#include "TraceData/text/ZynDataTextExporter.h"
#include "targets/LogCase.h"
#include "testing/process/Files.h"

namespace {

struct Exported {
    std::string text;
    std::string failure;
};

std::string NameOf(std::size_t number) { return "zynlog-" + std::to_string(number) + ".txt"; }

Exported Export(const std::string& directory, const LogCase& log) {
    static const MemoryFile memory;
    Exported exported;
    exported.failure = FailureOf([&] {
        LogStream stream;
        stream.GetAllLogFiles(directory, kLogPrefix, kLogPart, kLogFormat);
        TextFile file(memory.Path(), {});
        ProgressDisplay progress(nullptr);
        ZynDataTextExporter::Export<kReorderLimit>(stream, file, log.separator, progress,
                                                   FuzzNowMs);
        file.Close();
    });
    exported.text = memory.Content();
    return exported;
}

// The log cut at its places into the case's number of files; two cuts at one place leave a file
// with nothing but its header between them.
void WriteCut(const std::string& directory, const LogCase& log) {
    std::vector<std::size_t> places{0};
    for (std::size_t i = 1; i < log.files; ++i) {
        places.push_back(log.words[i - 1] % (log.log.size() + 1));
    }
    std::sort(places.begin(), places.end());
    places.push_back(log.log.size());
    for (std::size_t i = 0; i < 4; ++i) {
        const std::string path = directory + "/" + NameOf(i);
        if (i >= log.files) {
            static_cast<void>(std::remove(path.c_str()));
            continue;
        }
        WriteFile(path, ZynBinaryFileOutputSupport::GetHeader() +
                            std::string(log.log.substr(places[i], places[i + 1] - places[i])));
    }
}

}  // namespace

int ZynFuzzStream(FuzzInput input) {
    static const TempDirectory scratch;
    static const std::string whole = scratch.MakeDirectory("whole");
    static const std::string cut = scratch.MakeDirectory("cut");
    const LogCase log(input);
    WriteFile(whole + "/" + NameOf(0),
              ZynBinaryFileOutputSupport::GetHeader() + std::string(log.log));
    WriteCut(cut, log);

    const Exported uncut = Export(whole, log);
    const Exported pieces = Export(cut, log);
    RequireEqual(pieces.failure, uncut.failure, "the cut log fails differently");
    RequireEqual(pieces.text, uncut.text, "the cut log gives another text");

    const ModelExport expected = ModelExportLog(log.log, log.separator, kFuzzNow, std::nullopt);
    RequireEqual(uncut.failure, expected.failure, "another end of the log");
    RequireEqual(uncut.text, ZynTextFileOutputSupport::GetHeader() + expected.lines,
                 "another text of the log");
    return 0;
}
