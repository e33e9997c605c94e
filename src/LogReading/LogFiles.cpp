#include "LogReading/LogFiles.h"

#include <algorithm>

#include "Support/FileSystem.h"

const std::string& ZynBinaryFileOutputSupport::GetHeader() {
    static const std::string header =
        "-----------------------------------------------------\r\n"
        "NOTE: ZYN 3.0 trace data is stored as binary format. \r\n"
        "Please type zyntool at command prompt for information\r\n"
        "about converting to text format.  \r\n"
        "-----------------------------------------------------\r\n";
    return header;
}

std::vector<std::string> LogFileNames(const std::string& directory) {
    std::vector<std::string> names;
    CFileSystem::FindAllFiles(directory, kLogPrefix, kLogPart, names);
    std::sort(names.begin(), names.end());
    return names;
}
