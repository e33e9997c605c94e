#ifndef ZYN_TESTS_CLI_SERVICETOOLFIXTURE_H
#define ZYN_TESTS_CLI_SERVICETOOLFIXTURE_H

// The program beside a stand-in service, in a private product directory.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/ServiceEnvironment.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"
#include "testing/service/StandInProcess.h"

inline const std::string kBanner =
    "Runtime Tracing Command Line Utility 3.0\n"
    "------------------------------------------------------\n";

class ServiceTool : public ::testing::Test {
  protected:
    [[nodiscard]] ProgramRun Run(const std::vector<std::string>& arguments) const {
        ProgramRun run;
        run.program = ZYN_TOOL;
        run.arguments = arguments;
        run.environment = environment_.Variables();
        run.preloadLibrary = ZYN_SYSLOG_PRELOAD;
        return run;
    }
    // With both streams in one, in the order of writing.
    [[nodiscard]] ProgramResult Merged(const std::vector<std::string>& arguments) const {
        ProgramRun run = Run(arguments);
        run.mergedOutput = true;
        return RunProgram(run);
    }
    [[nodiscard]] standin::StandInProcess Service(
        const std::vector<std::string>& options = {}) const {
        return standin::StandInProcess(ZYN_STANDIN_SERVICE, environment_.RunDirectory(), options);
    }
    // The texts of the records sent under the interface's name.
    [[nodiscard]] std::vector<std::string> Reports() const {
        std::vector<std::string> texts;
        if (!std::filesystem::exists(environment_.SyslogFile())) {
            return texts;
        }
        std::string records = ReadFile(environment_.SyslogFile());
        for (std::size_t end = records.find('\n'); end != std::string::npos;
             end = records.find('\n')) {
            const std::string record = records.substr(0, end);
            records.erase(0, end + 1);
            if (record.starts_with("ZYNAPI|")) {
                texts.push_back(record.substr(record.rfind('|') + 1));
            }
        }
        return texts;
    }
    // Files in the run directory that only the tool creates.
    [[nodiscard]] std::vector<std::string> FilesOfTheTool() const {
        std::vector<std::string> names = environment_.Files();
        for (const char* name : {"ZynRecordSequenceNumberSeed.map", "ZynServerMessageBuffer.map",
                                 "ZynService.lck", "ZynService.pid"}) {
            std::erase(names, name);
        }
        return names;
    }

    ServiceEnvironment environment_;
};

#endif
