#ifndef ZYN_TESTS_ZYNANSIAPI_APPLICATIONSFIXTURE_H
#define ZYN_TESTS_ZYNANSIAPI_APPLICATIONSFIXTURE_H

// Applications of the interface as children of a test, and where they meet the stand-in service.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "fixtures/ServiceEnvironment.h"
#include "testing/service/StandInProcess.h"

// An application that runs beside the test and ends at the end of its input.
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

    // The exit status after the end of the input; 128 and the signal for one that was killed, as
    // this does with one that has not ended after a minute.
    int End() {
        CloseInput();
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        int status = -1;
        while (::waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > end) {
                ::kill(pid_, SIGKILL);
            }
            ::usleep(2000);
        }
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
    Application ForkProbe(const std::vector<std::string>& arguments) {
        return Application(ZYN_FORK_PROBE, arguments, environment_.Variables());
    }
    standin::StandInProcess Service(const std::vector<std::string>& options = {}) {
        return standin::StandInProcess(ZYN_STANDIN_SERVICE, environment_.RunDirectory(), options);
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

#endif
