#ifndef ZYN_TESTS_CLI_EXPORTFIXTURE_H
#define ZYN_TESTS_CLI_EXPORTFIXTURE_H

// Logs to export and the texts they become.

#include <string>
#include <vector>

#include "cli/ToolFixture.h"
#include "testing/logs/LogWriter.h"

inline const std::string kColumns =
    "#Timestamp              #PID   #TID        #Module      #Client    #Label       #Message   "
    "                                    \n";

// What the progress display writes for a percentage.
inline std::string Progress(unsigned percent) {
    std::string number = std::to_string(percent);
    number.insert(0, 3 - number.size(), ' ');
    return std::string(percent / 10, '*') + std::string(10 - percent / 10, '.') + "  [" + number +
           "%]" + std::string(18, '\b');
}

class ExportFixture : public ToolFixture {
  protected:
    // A block of one record.
    static LogBlock Block(const std::string& text) {
        LogBlock block;
        block.Record(LogRecord(1)
                         .Time(0, 0)
                         .Pid(7)
                         .Tid(1234)
                         .Module("Mod")
                         .Client("Cli")
                         .Label("Lab")
                         .Message(text));
        return block;
    }
    // A file of that block.
    static std::string Log(const std::string& text) {
        return LogWriter().Block(Block(text)).File();
    }
    // The line it becomes.
    static std::string Line(const std::string& text) {
        return "01/01/1970 00:00:00.000    7      1234ModCliLab" + text + "\n";
    }

    // Writes a log file into the log directory.
    void Write(const std::string& name, const std::string& content) const {
        WriteFile(logs_ + "/" + name, content);
    }

    // The export must succeed silently.
    void ExportSilently(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "export");
        arguments.emplace_back("-silent");
        const ProgramResult result = Tool(arguments);
        EXPECT_EQ(result.error, kToolBanner);
        EXPECT_EQ(result.status, 0);
    }
    // It must fail with this text.
    void ExpectFailure(std::vector<std::string> arguments, const std::string& text) const {
        arguments.insert(arguments.begin(), "export");
        arguments.emplace_back("-silent");
        const ProgramResult result = Tool(arguments);
        EXPECT_EQ(result.error, kToolBanner + ToolFailure(text));
        EXPECT_EQ(result.status, 255);
    }

    [[nodiscard]] bool Exists(const std::string& name) const {
        for (const std::string& entry : ListDirectory(directory_.Path())) {
            if (entry == name) {
                return true;
            }
        }
        return false;
    }

    const std::string logs_ = directory_.MakeDirectory("logs");
};

#endif
