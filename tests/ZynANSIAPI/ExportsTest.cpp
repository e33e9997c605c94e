// What an application gets to see of the library: nine functions, and a header for C and C++.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "testing/process/Files.h"
#include "testing/process/RunProgram.h"

namespace {

ProgramResult Execute(const std::string& program, const std::vector<std::string>& arguments) {
    ProgramRun run;
    run.program = program;
    run.arguments = arguments;
    run.environment = {"PATH=/usr/bin:/bin", "LC_ALL=C"};
    return RunProgram(run);
}

TEST(SharedLibrary, ExportsTheNineFunctionsAndNothingElse) {
    const ProgramResult result =
        Execute(ZYN_NM, {"--dynamic", "--defined-only", "--format=posix", ZYN_API_SHARED});
    ASSERT_EQ(result.status, 0) << result.error;
    std::vector<std::string> names;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        names.push_back(line.substr(0, line.find(' ')));
    }
    EXPECT_THAT(names, ::testing::UnorderedElementsAre("ZynGetModuleHandle", "ZynGetLabelHandle",
                                                       "ZynRegisterClient", "ZynTraceEnabledEx",
                                                       "ZynPause", "ZynResume", "ZynReloadConfig",
                                                       "ZynPreservationOn", "ZynPreservationOff"));
}

class PublicHeader : public ::testing::Test {
  protected:
    // Compiles a program that includes the header by its full path, with no include directory.
    ProgramResult Compile(const std::string& language, const std::string& standard,
                          const std::string& body) {
        const std::string source = directory_ / "use.c";
        WriteFile(source, std::string("#include \"") + ZYN_PUBLIC_HEADER + "\"\n" + body);
        return Execute(ZYN_CXX, {"-x", language, "-std=" + standard, "-Wall", "-Wextra",
                                 "-Wpedantic", "-Werror", "-fsyntax-only", source});
    }
    TempDirectory directory_;
};

TEST_F(PublicHeader, ServesC) {
    const ProgramResult result =
        Compile("c", "c99",
                "int use(void) { int m; return ZynGetModuleHandle(\"m\", &m) + ZynPause() + "
                "ZynTraceEnabledEx(m, ZYN_NO_CLIENT, 0); }\n");
    EXPECT_EQ(result.status, 0) << result.error;
}

TEST_F(PublicHeader, ServesOlderCxxAndPromisesNotToThrow) {
    const ProgramResult result = Compile(
        "c++", "c++11", "static_assert(noexcept(ZynPause()), \"\");\nint use() { return 0; }\n");
    EXPECT_EQ(result.status, 0) << result.error;
}

}  // namespace
