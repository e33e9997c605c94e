#ifndef ZYN_TESTS_CLI_VERIFYFIXTURE_H
#define ZYN_TESTS_CLI_VERIFYFIXTURE_H

// zynlog-verify run from outside, in a directory of its own with times shown in UTC.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "testing/logs/LogWriter.h"
#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

class VerifyFixture : public testing::Test {
  protected:
    static LogRecord Record(std::uint32_t number) {
        return LogRecord(number).Time(1700000000 + number, 5).Message("message");
    }

    ProgramResult Run(const char* program, std::vector<std::string> arguments,
                      ProgramRun run = {}) const {
        run.program = program;
        run.arguments = std::move(arguments);
        run.environment = {"TZ=UTC"};
        run.directory = directory_.Path();
        return RunProgram(run);
    }
    ProgramResult Verify(std::vector<std::string> arguments, const ProgramRun& run = {}) const {
        return Run(ZYN_VERIFY, std::move(arguments), run);
    }

    TempDirectory directory_;
};

#endif
