#ifndef ZYN_TESTS_CLI_CATFIXTURE_H
#define ZYN_TESTS_CLI_CATFIXTURE_H

// zynlog-cat run from outside, in a directory of its own with times shown in UTC.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

inline const std::string kColumnsHeader =
    "#Timestamp              #PID   #TID        #Module      #Client    #Label       #Message   ";

class CatFixture : public testing::Test {
  protected:
    ProgramResult Cat(std::vector<std::string> arguments, ProgramRun run = {}) const {
        run.program = ZYN_CAT;
        run.arguments = std::move(arguments);
        run.environment.insert(run.environment.end(),
                               {"TZ=UTC0", "KORVA_VANTOREL_CFG=" + directory_.Path(),
                                "KORVA_VANTOREL_DIR=" + directory_.Path()});
        run.directory = directory_.Path();
        return RunProgram(run);
    }
    // Runs a command of the shell in the directory.
    void Shell(const std::string& command) const {
        ProgramRun run;
        run.program = "/bin/sh";
        run.arguments = {"-c", "PATH=/usr/bin:/bin; " + command};
        run.directory = directory_.Path();
        const ProgramResult result = RunProgram(run);
        ASSERT_EQ(result.status, 0) << command << ": " << result.error;
    }
    // The messages of the records shown, one a line.
    std::string Messages(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"-o", "csv", "--no-header"});
        const ProgramResult result = Cat(std::move(arguments));
        EXPECT_EQ(result.error, "");
        EXPECT_EQ(result.status, 0);
        std::string messages;
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = result.output.find('\n', begin)) != std::string::npos;
             begin = end + 1) {
            std::size_t field = begin;
            for (int i = 0; i < 8; ++i) {
                field = result.output.find(',', field) + 1;
            }
            messages += result.output.substr(field, result.output.find(',', field) - field) + " ";
        }
        return messages;
    }

    static LogRecord Record(std::uint32_t number, const std::string& message) {
        return LogRecord(number)
            .Time(1700000000 + number, 250)
            .Pid(100 + number)
            .Tid(200 + number)
            .Module("Module" + std::to_string(number))
            .Client("client")
            .Label(number % 2 == 0 ? "Even" : "Odd")
            .Message(message);
    }
    static LogBlock Block(std::uint32_t first, std::uint32_t count,
                          const std::string& host = "alpha") {
        LogBlock block;
        for (std::uint32_t i = first; i < first + count; ++i) {
            block.Record(Record(i, "m" + std::to_string(i)));
        }
        return block.Host(host).Pid(31);
    }
    std::string WriteLog(const std::string& name, const LogWriter& log,
                         const std::vector<std::size_t>& offsets = {}) const {
        log.WriteFiles(directory_.MakeDirectory(name), offsets);
        return name;
    }
    static LogWriter SmallLog() {
        return LogWriter().Block(Block(1, 3)).Block(Block(4, 2, "beta"));
    }

    ProgramResult Tool(std::vector<std::string> arguments) const {
        ProgramRun run;
        run.program = ZYN_TOOL;
        run.arguments = std::move(arguments);
        run.environment = {"TZ=UTC0"};
        run.directory = directory_.Path();
        return RunProgram(run);
    }

    TempDirectory directory_;
};

#endif
