// The programs with less and less address space, down to what the dynamic loader itself needs:
// their report and their status, never a signal.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "cli/ToolFixture.h"
#include "testing/logs/LogWriter.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kLimited = false;  // a sanitizer reserves more address space than there is memory
#else
constexpr bool kLimited = true;
#endif

struct Use {
    const char* name;
    const char* program;
    std::vector<std::string> arguments;
    int failed;         // the status
    const char* first;  // what standard error ends with at the lowest limit
    // What standard output has then. The doctor also looks at the disk, and starts a program.
    enum Output { kPrefixOfTheWhole, kAny } output = kPrefixOfTheWhole;
};

std::ostream& operator<<(std::ostream& out, const Use& use) { return out << use.name; }

constexpr const char* kToolReport = "Operation failed.\nError description:std::bad_alloc\n";

const std::vector<Use> kUses = {
    {"ExportToOneFile", ZYN_TOOL, {"export", "-f", "all.txt", "-silent"}, 255, kToolReport},
    {"ExportOfEachLog", ZYN_TOOL, {"export", "-m", "text", "-silent"}, 255, kToolReport},
    {"Clean", ZYN_TOOL, {"clean", "-f"}, 255, kToolReport},
    {"Verify", ZYN_VERIFY, {"log"}, 2, "zynlog-verify: std::bad_alloc\n"},
    {"VerifyAsJson", ZYN_VERIFY, {"--json", "log"}, 2, "zynlog-verify: std::bad_alloc\n"},
    {"Cat", ZYN_CAT, {"log"}, 2, "zynlog-cat: std::bad_alloc\n"},
    {"CatCounts", ZYN_CAT, {"-o", "count", "log"}, 2, "zynlog-cat: std::bad_alloc\n", Use::kAny},
    {"CatMerged", ZYN_CAT, {"--merge", "log", "log"}, 2, "zynlog-cat: std::bad_alloc\n"},
    {"Doctor", ZYN_DOCTOR, {}, 2, "zyn-doctor: std::bad_alloc\n", Use::kAny},
    {"DoctorAsJson", ZYN_DOCTOR, {"--json"}, 2, "zyn-doctor: std::bad_alloc\n", Use::kAny},
};

class WantOfMemory : public ToolFixture, public testing::WithParamInterface<Use> {
  protected:
    WantOfMemory() {
        ConfigureLogs(directory_ / "log");
        for (const char* name : {"text", "temp/ZYN"}) {
            std::filesystem::create_directories(directory_ / name);
        }
        WriteLogs();
    }

    void WriteLogs() const {
        LogWriter log;
        for (std::uint32_t number = 0; number < 2000;) {
            LogBlock block;
            for (const std::uint32_t end = number + 200; number < end; ++number) {
                block.Record(LogRecord(number)
                                 .Time(1700000000 + number, 5)
                                 .Pid(number % 7)
                                 .Module("Module" + std::to_string(number % 50))
                                 .Message("message " + std::to_string(number)));
            }
            log.Block(block);
        }
        log.WriteFiles(directory_.MakeDirectory("log"), {});
    }

    ProgramResult RunWith(rlim_t kiB) const {
        WriteLogs();
        ProgramRun run = Run(GetParam().arguments);
        run.program = GetParam().program;
        // Of the doctor, which else asks the system's log.
        run.environment.push_back("PATH=" + directory_ / "text");
        if (kiB != 0) {
            run.limits = {{RLIMIT_AS, kiB * 1024}, {RLIMIT_CORE, 0}};
        }
        return RunProgram(run);
    }

    // The dynamic loader's own end, before anything of the program has run.
    static bool IsLoaders(const ProgramResult& result) {
        return result.status == 127 || (result.signal == SIGSEGV && result.error.empty());
    }
};

TEST_P(WantOfMemory, IsReportedUpToTheLimitThatSuffices) {
    if (!kLimited) {
        EXPECT_EQ(RunWith(0).signal, 0);
        return;
    }
    const ProgramResult whole = RunWith(0);
    ASSERT_EQ(whole.signal, 0) << whole.error;
    constexpr rlim_t kCoarse = 60;
    constexpr rlim_t kFine = 12;
    rlim_t kiB = 2000 + 4 * (std::random_device()() % (kFine / 4));
    while (IsLoaders(RunWith(kiB))) {
        kiB += kCoarse;
        ASSERT_LT(kiB, 60'000U);
    }
    unsigned wants = 0;
    for (unsigned suffices = 0; suffices < 3; kiB += kFine) {
        ASSERT_LT(kiB, 60'000U);
        const ProgramResult result = RunWith(kiB);
        ASSERT_EQ(result.signal, 0) << kiB << " KiB: " << result.error;
        const bool any = GetParam().output == Use::kAny;
        if (result.status == whole.status && result.error == whole.error &&
            (any || result.output == whole.output)) {
            ++suffices;
            continue;
        }
        ++wants;
        EXPECT_EQ(result.status, GetParam().failed) << kiB << " KiB";
        // Later on it may name the log.
        const std::string report = wants == 1 ? GetParam().first : "std::bad_alloc\n";
        EXPECT_TRUE(result.error.ends_with(report)) << kiB << " KiB: " << result.error;
        EXPECT_TRUE(any || whole.output.starts_with(result.output))
            << kiB << " KiB: " << result.output;
    }
    EXPECT_NE(wants, 0U);
}

INSTANTIATE_TEST_SUITE_P(Programs, WantOfMemory, testing::ValuesIn(kUses),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
