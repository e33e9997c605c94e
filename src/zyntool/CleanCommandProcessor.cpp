#include "zyntool/CleanCommandProcessor.h"

#include <cctype>
#include <exception>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "LogReading/LogFiles.h"
#include "Support/FileSystem.h"
#include "Support/ValidationException.h"
#include "ZynConfigFileReader/ConfiguredLog.h"

namespace {

// Reads the next word, of which the first two characters decide whether it is an answer; the rest
// is passed over, so that a word without an end needs no memory. At the end of the input the last
// answer stays.
void ReadAnswer(std::string& answer) {
    std::cin >> std::setw(2) >> answer;
    while (std::cin.good()) {
        const int next = std::cin.peek();
        if (next == std::istream::traits_type::eof() || std::isspace(next) != 0) {
            break;
        }
        std::cin.get();
    }
}

bool Confirmed(const std::string& directory) {
    std::cerr << "Are you sure to delete all the log data stored in " << directory << '\n';
    std::string answer = "No";
    while (answer != "Y" && answer != "N") {
        std::cerr << "Please select (Y or N ) : ";
        // Kept as is: the end of the input is not detected, and the question repeats. A script that
        // wants no question passes -f.
        ReadAnswer(answer);
        for (char& character : answer) {
            character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
        }
        // A question that nobody can see or answer would keep a processor busy for ever.
        ZYN_CHECK_LOGIC(std::cin || std::cerr, "Can not ask");
    }
    return answer == "Y";
}

void DeleteLogFiles(const std::string& path) {
    // Whoever may move the directories above it must not turn the deletion elsewhere.
    OpenedDirectory directory(path);
    // In the order in which the system lists them: none has to go before another.
    std::vector<std::string> names;
    directory.FindAllFiles(kLogPrefix, kLogPart, names);
    for (const std::string& name : names) {
        const bool removed = directory.Remove(name);
        ZYN_CHECK_OS_CALL(removed, "Can not delete file");
    }
}

}  // namespace

void CleanCommandProcessor::Process(CommandLineParser::CommandOptions& options) {
    ConfiguredLog log;
    log.Read();
    if (log.Failure()) {
        std::rethrow_exception(log.Failure());
    }
    const std::string directory = log.Path() + '/';
    const bool forced = options.contains("F");
    if (!forced && !Confirmed(directory)) {
        return;
    }
    // Without a path the directory would be the root of the file system.
    if (!log.IsEmpty()) {
        DeleteLogFiles(directory);
    }
    if (!forced) {
        std::cerr << "All log files have been deleted.\n";
    }
}
