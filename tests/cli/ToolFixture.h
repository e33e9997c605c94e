#ifndef ZYN_TESTS_CLI_TOOLFIXTURE_H
#define ZYN_TESTS_CLI_TOOLFIXTURE_H

// The program in a private directory and environment, and the texts that it opens and ends with.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

inline const std::string kToolBanner =
    "Runtime Tracing Command Line Utility 3.0\n"
    "------------------------------------------------------\n";

inline std::string ToolFailure(const std::string& description) {
    return "Operation failed.\nError description:" + description + "\n";
}

// How often a run, which must succeed, calls a function of the C library (LibcCalls.h names them).
// The count goes through a file of the directory. error: what the calls fail with, so that nothing
// comes of them; 0: they are made.
inline std::size_t CallsOf(const std::string& function, ProgramRun run,
                           const std::string& directory, int error = 0) {
    const std::string hits = directory + "/hits";
    for (const std::string& setting :
         {"CALL=" + function, "LOG=" + hits, std::string("FIRST=1"), std::string("COUNT=all"),
          "ACTION=" + std::to_string(error)}) {
        run.environment.push_back("ZYN_FAULT_" + setting);
    }
    run.preloadLibrary = ZYN_FAULT_PRELOAD;
    // Without a call there is no file.
    WriteFile(hits, "");
    EXPECT_EQ(RunProgram(run).status, 0);
    const std::string lines = ReadFile(hits);
    std::filesystem::remove(hits);
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n'));
}

class ToolFixture : public testing::Test {
  protected:
    // With times shown in UTC, the configuration below the private directory, nothing else.
    ProgramRun Run(std::vector<std::string> arguments) const {
        ProgramRun run;
        run.program = ZYN_TOOL;
        run.arguments = std::move(arguments);
        run.environment = {"TZ=UTC0", "KORVA_VANTOREL_CFG=" + directory_.Path(),
                           "KORVA_VANTOREL_DIR=" + directory_.Path()};
        run.directory = directory_.Path();
        return run;
    }

    static ProgramResult Finish(const ProgramRun& run) {
        ProgramResult result = RunProgram(run);
        EXPECT_EQ(result.output, "") << "all output goes to standard error";
        EXPECT_EQ(result.signal, 0);
        EXPECT_FALSE(result.timedOut);
        return result;
    }

    ProgramResult Tool(std::vector<std::string> arguments) const {
        return Finish(Run(std::move(arguments)));
    }

    void WriteConfiguration(const std::string& document) const {
        WriteFile(directory_.MakeDirectory("cfg") + "/ZynConfigLinux.xml", document);
    }
    void ConfigureLogs(const std::string& path) const {
        WriteConfiguration("<ZYNConfig trace='1'><Logfile path='" + path +
                           "' size='1' maxbackups='1' preserve_size='1' "
                           "preserve_maxbackups='1'/><Global/></ZYNConfig>");
    }

    // In the private directory.
    [[nodiscard]] std::string Content(const std::string& name) const {
        return ReadFile(directory_ / name);
    }

    const TempDirectory directory_;
};

#endif
