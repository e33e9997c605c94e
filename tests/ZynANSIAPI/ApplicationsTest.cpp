// Applications of the interface from outside, against the stand-in service.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "fixtures/ServiceEnvironment.h"
#include "testing/process/RunProgram.h"
#include "testing/service/StandInProcess.h"

namespace {

using standin::StandInProcess;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kEnabled =
    "<Module name='M' state='1'><MLabel name='On' state='1'/></Module>";
constexpr const char* kDisabled = "<Module name='M' state='0'/>";

// An application that runs beside the test and is told to end by the end of its input.
class Application {
  public:
    Application(const std::string& program, std::vector<std::string> arguments,
                std::vector<std::string> environment) {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        arguments.insert(arguments.begin(), program);
        for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
            if (const char* value = std::getenv(name)) {
                environment.push_back(std::string(name) + "=" + value);
            }
        }
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        const int error = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr,
                                        Pointers(arguments).data(), Pointers(environment).data());
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        input_ = input[1];
        output_ = output[0];
        if (error != 0) {
            pid_ = -1;
            throw std::runtime_error("cannot start " + program);
        }
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;
    ~Application() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        CloseInput();
        ::close(output_);
    }

    // The next line; a text in angle brackets when none comes.
    std::string Line() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (text_.find('\n') == std::string::npos) {
            pollfd ready{output_, POLLIN, 0};
            std::array<char, 256> bytes{};
            if (std::chrono::steady_clock::now() > end) {
                return "<nothing comes>";
            }
            if (::poll(&ready, 1, 1000) != 1) {
                continue;
            }
            const ssize_t count = ::read(output_, bytes.data(), bytes.size());
            if (count <= 0) {
                return "<end>";
            }
            text_.append(bytes.data(), static_cast<std::size_t>(count));
        }
        const std::string line = text_.substr(0, text_.find('\n'));
        text_.erase(0, line.size() + 1);
        return line;
    }

    void CloseInput() {
        if (input_ != -1) {
            ::close(input_);
            input_ = -1;
        }
    }

    // The exit status after the end of the input; 128 and the signal for one that was killed.
    int End() {
        CloseInput();
        int status = -1;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    [[nodiscard]] std::string Pid() const { return std::to_string(pid_); }

  private:
    static std::vector<char*> Pointers(std::vector<std::string>& texts) {
        std::vector<char*> pointers;
        for (std::string& text : texts) {
            pointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
        return pointers;
    }

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string text_;
};

class ApplicationsTest : public ::testing::Test {
  protected:
    Application Sample() {
        return Application(ZYN_TRACED_APP, {"M", "C", "On"}, environment_.Variables());
    }
    Application Probe(const std::string& scenario) {
        return Application(ZYN_API_PROBE, {scenario}, environment_.Variables());
    }
    StandInProcess Service(const std::vector<std::string>& options = {}) {
        return StandInProcess(ZYN_STANDIN_SERVICE, environment_.RunDirectory(), options);
    }

    // Of the run directory; given up after a minute.
    void AwaitFiles(const std::vector<std::string>& files) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (environment_.Files() != files && std::chrono::steady_clock::now() < end) {
            ::usleep(5000);
        }
        ASSERT_EQ(environment_.Files(), files);
    }

    ServiceEnvironment environment_;
};

TEST_F(ApplicationsTest, SampleFollowsPauseResumeAndReload) {
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    Application sample = Sample();
    EXPECT_EQ(sample.Line(), "tracing enabled");
    service.Command("pause");
    EXPECT_EQ(sample.Line(), "tracing disabled");
    service.Command("resume");
    EXPECT_EQ(sample.Line(), "tracing enabled");
    environment_.Configure(kDisabled);
    service.Command("reload");
    EXPECT_EQ(sample.Line(), "tracing disabled");
    environment_.Configure(kEnabled);
    service.Command("reload");
    EXPECT_EQ(sample.Line(), "tracing enabled");
    const std::string pid = sample.Pid();
    EXPECT_EQ(sample.End(), 0);
    EXPECT_TRUE(service.WaitForLine("un-registered pid " + pid));
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, SampleConnectsToAServiceThatStartsLater) {
    environment_.Configure(kEnabled);
    Application sample = Sample();
    EXPECT_EQ(sample.Line(), "tracing disabled");
    StandInProcess service = Service();
    EXPECT_EQ(sample.Line(), "tracing enabled");
    EXPECT_EQ(sample.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, SampleConnectsAgainAfterARestartOfTheService) {
    environment_.Configure(kEnabled);
    Application sample = Sample();
    EXPECT_EQ(sample.Line(), "tracing disabled");
    for (int round = 0; round < 2; ++round) {
        StandInProcess service = Service();
        ASSERT_TRUE(service.WaitForLine("confirmed registration of pid " + sample.Pid()));
        EXPECT_EQ(service.Terminate(), 0);
        // The client notices and removes its regions before the next service comes.
        AwaitFiles({});
    }
    EXPECT_EQ(sample.End(), 0);
}

TEST_F(ApplicationsTest, RequestAfterTheEndOfTheServiceFailsAndSaysSo) {
    std::vector<std::string> variables = environment_.Variables();
    variables.emplace_back("DIAGNOSTIC_MODE=1");
    StandInProcess service = Service();
    Application probe(ZYN_API_PROBE, {"twice"}, variables);
    EXPECT_EQ(probe.Line(), "first 0");
    EXPECT_EQ(service.Terminate(), 0);
    // The regions of the client go when it has noticed.
    AwaitFiles({"trace.txt"});
    probe.CloseInput();
    EXPECT_EQ(probe.Line(), "second 1");
    EXPECT_EQ(probe.End(), 0);
    const std::string trace = ReadFile(environment_.RunDirectory() + "/trace.txt");
    EXPECT_THAT(trace, ::testing::HasSubstr("ZYNCLIENT: Service stopped.\n"));
    EXPECT_THAT(trace,
                ::testing::HasSubstr("-Bad logic:ZYN Dispatching service is not running.\n"));
}

TEST_F(ApplicationsTest, ForkClosesTheConnectionForParentAndChild) {
    StandInProcess service = Service();
    Application probe = Probe("fork");
    const std::string pid = probe.Pid();
    EXPECT_EQ(probe.Line(), "before 0");
    EXPECT_EQ(probe.Line(), "child 1");
    EXPECT_EQ(probe.Line(), "child status 0");
    EXPECT_EQ(probe.Line(), "parent 1");
    EXPECT_EQ(probe.End(), 0);
    EXPECT_TRUE(service.WaitForLine("un-registered pid " + pid));
    EXPECT_EQ(service.Terminate(), 0);
    std::vector<std::string> lines = service.Lines();
    std::erase_if(lines, [](const std::string& line) {
        return line.find("registered pid") == std::string::npos;
    });
    EXPECT_THAT(lines, ElementsAre("registered pid " + pid, "un-registered pid " + pid));
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, ThreadThatIsCancelledFinishesItsRequestFirst) {
    StandInProcess service = Service({"--late", "500"});
    Application probe = Probe("cancel");
    ASSERT_TRUE(service.WaitForLine("request pause from pid " + probe.Pid()));
    probe.CloseInput();
    EXPECT_EQ(probe.Line(), "request 0");
    EXPECT_EQ(probe.Line(), "cancelled");
    EXPECT_EQ(probe.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, QueriesOnManyThreadsDuringReloadsSeeNoForeignStatus) {
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    Application probe = Probe("threads");
    ASSERT_EQ(probe.Line(), "running");
    for (int reload = 1; reload <= 20; ++reload) {
        environment_.Configure(reload % 2 == 0 ? kEnabled : kDisabled);
        service.Command("reload");
        ASSERT_TRUE(service.WaitForLine("order reload -> pid " + probe.Pid(),
                                        static_cast<std::size_t>(reload)));
    }
    // One request more, so that all reloads have been carried out before the queries end.
    service.Command("pause");
    service.Command("resume");
    ASSERT_TRUE(service.WaitForLine("order resume -> pid " + probe.Pid()));
    probe.CloseInput();
    EXPECT_EQ(probe.Line(), "wrong 0");
    EXPECT_THAT(probe.Line(), ::testing::StartsWith("on "));
    EXPECT_EQ(probe.End(), 0);
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

TEST_F(ApplicationsTest, EndOfTheProcessIsSafeWhileItsThreadsQuery) {
    environment_.Configure(kEnabled);
    StandInProcess service = Service();
    for (int round = 0; round < 3; ++round) {
        Application probe = Probe("leave");
        EXPECT_EQ(probe.Line(), "leaving");
        EXPECT_EQ(probe.End(), 0);
    }
    EXPECT_EQ(service.Terminate(), 0);
    EXPECT_THAT(environment_.Files(), IsEmpty());
}

}  // namespace
