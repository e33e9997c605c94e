#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ZynService/ZynServiceMonitor.h"
#include "fixtures/RaisedFailure.h"
#include "fixtures/ServiceTest.h"
#include "testing/faults/LibcFaults.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A process that does nothing until it is ended.
class IdleProcess {
  public:
    IdleProcess() : pid_(::fork()) {
        if (pid_ == 0) {
            for (;;) {
                ::pause();
            }
        }
    }
    IdleProcess(const IdleProcess&) = delete;
    IdleProcess& operator=(const IdleProcess&) = delete;
    ~IdleProcess() { End(); }

    void End() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }
    [[nodiscard]] std::string Pid() const { return std::to_string(pid_); }

  private:
    pid_t pid_;
};

class StartRecorder : public WatchServiceStartUsingPIDFile {
  public:
    [[nodiscard]] const std::vector<unsigned int>& Started() const { return started_; }

  private:
    void OnServiceStarted(unsigned int pid) override { started_.push_back(pid); }
    std::vector<unsigned int> started_;
};

class StopRecorder : public WatchServiceStopUsingPID {
  public:
    [[nodiscard]] int Stopped() const { return stopped_; }

  private:
    void OnServiceStopped() override { ++stopped_; }
    int stopped_ = 0;
};

TEST(WatchServiceStartUsingPIDFile, FindsAServiceByItsLockAndPidFiles) {
    const RunDirectory run(true);
    const std::string pid = std::to_string(::getpid());
    WriteFile(run / "Name.lck", "");
    for (const std::string& text : {pid, pid + "\n", pid + " x", pid + "abc", "000" + pid,
                                    "      " + pid + "\n", "\r\n\t\v\f" + pid}) {
        WriteFile(run / "Name.pid", text);
        StartRecorder watch;
        watch.Check("Name");
        EXPECT_THAT(watch.Started(), ElementsAre(static_cast<unsigned int>(::getpid()))) << text;
    }
    const std::vector<std::string> trace = run.Trace();
    EXPECT_EQ(trace[0], "PROC FILE /proc/" + pid);
    EXPECT_EQ(trace[1], "ERRNO is 0 and rc is 0");
}

TEST(WatchServiceStartUsingPIDFile, PidFileWithoutItsLockFileIsNoService) {
    const RunDirectory run(true);
    WriteFile(run / "Name.pid", std::to_string(::getpid()));
    StartRecorder watch;
    watch.Check("Name");
    EXPECT_THAT(watch.Started(), IsEmpty());
    EXPECT_THAT(run.Trace(), IsEmpty());
}

TEST(WatchServiceStartUsingPIDFile, LockFileWithoutItsPidFileIsNoService) {
    const RunDirectory run(true);
    WriteFile(run / "Name.lck", "");
    StartRecorder watch;
    watch.Check("Name");
    EXPECT_THAT(watch.Started(), IsEmpty());
    EXPECT_THAT(run.Trace(), IsEmpty());
}

TEST(WatchServiceStartUsingPIDFile, AnythingButANumberThatCanBeAProcessIsNoService) {
    const RunDirectory run(true);
    WriteFile(run / "Name.lck", "");
    StartRecorder watch;
    const std::string pid = std::to_string(::getpid());
    for (const std::string& text :
         {std::string(), std::string("0"), std::string("000"), std::string("pid"), "x" + pid,
          " x" + pid, std::string(" \n"), "-" + pid, "+" + pid, std::string("4294967296"),
          std::string("99999999999999999999999999"), std::string(5000, '9'),
          std::string("\0", 1) + pid, std::string("\xFF\xFE")}) {
        WriteFile(run / "Name.pid", text);
        watch.Check("Name");
    }
    EXPECT_THAT(watch.Started(), IsEmpty());
    EXPECT_THAT(run.Trace(), IsEmpty());
}

TEST(WatchServiceStartUsingPIDFile, LargestNumberIsLookedUp) {
    const RunDirectory run(true);
    WriteFile(run / "Name.lck", "");
    WriteFile(run / "Name.pid", "4294967295");
    StartRecorder watch;
    watch.Check("Name");
    EXPECT_THAT(watch.Started(), IsEmpty());
    EXPECT_THAT(run.Trace(), ElementsAre("PROC FILE /proc/4294967295", "ERRNO is 2 and rc is -1"));
}

TEST(WatchServiceStartUsingPIDFile, ProcessThatNoLongerExistsIsNoService) {
    const RunDirectory run(true);
    WriteFile(run / "Name.lck", "");
    IdleProcess gone;
    const std::string pid = gone.Pid();
    gone.End();
    WriteFile(run / "Name.pid", pid);
    StartRecorder watch;
    watch.Check("Name");
    EXPECT_THAT(watch.Started(), IsEmpty());
    EXPECT_THAT(run.Trace(), ElementsAre("PROC FILE /proc/" + pid, "ERRNO is 2 and rc is -1"));
}

TEST(WatchServiceStartUsingPIDFile, DirectoryAndFifoAsPidFileAreNoServiceAndDoNotHang) {
    const RunDirectory run;
    WriteFile(run / "Name.lck", "");
    StartRecorder watch;
    ASSERT_EQ(::mkfifo((run / "Name.pid").c_str(), 0666), 0);
    watch.Check("Name");
    std::filesystem::remove(run / "Name.pid");
    std::filesystem::create_directory(run / "Name.pid");
    watch.Check("Name");
    EXPECT_THAT(watch.Started(), IsEmpty());
}

// The services seen to start when the pid file names this process and the first read of it fails.
std::vector<unsigned int> StartedAfterFailedRead(int error) {
    const RunDirectory run;
    WriteFile(run / "Name.lck", "");
    WriteFile(run / "Name.pid", std::to_string(::getpid()));
    const LibcFault fault(LibcCall::kRead, error);
    StartRecorder watch;
    watch.Check("Name");
    EXPECT_TRUE(fault.Happened());
    return watch.Started();
}

TEST(WatchServiceStartUsingPIDFile, InterruptedReadIsMadeAgain) {
    EXPECT_THAT(StartedAfterFailedRead(EINTR), ElementsAre(static_cast<unsigned int>(::getpid())));
}

TEST(WatchServiceStartUsingPIDFile, PidFileThatCannotBeReadIsNoService) {
    EXPECT_THAT(StartedAfterFailedRead(EIO), IsEmpty());
}

TEST(WatchServiceStartUsingPIDFile, MissingRunDirectoryIsNoService) {
    const EnvironmentVariable product("KORVA_VANTOREL_DIR", "/nonexistent");
    StartRecorder watch;
    watch.Check("Name");
    EXPECT_THAT(watch.Started(), IsEmpty());
}

TEST(WatchServiceStopUsingPID, NoticesWhenTheProcessIsGone) {
    StopRecorder watch;
    IdleProcess process;
    const auto pid = static_cast<unsigned int>(std::stoul(process.Pid()));
    watch.Check(pid);
    EXPECT_EQ(watch.Stopped(), 0);
    process.End();
    watch.Check(pid);
    EXPECT_EQ(watch.Stopped(), 1);
}

class ZynServiceMonitorTest : public ServiceTest {
  protected:
    [[nodiscard]] bool HasClient() {
        return AutoLockingPointer<ZynServiceClient>(*client_).Get() != nullptr;
    }
    void TearDown() override {
        const Confirming confirming(service_);
        AutoLockingPointer<ZynServiceClient>(*client_).Delete();
    }

    std::unique_ptr<ZynFilterManager> filter_ = std::make_unique<ZynFilterManager>();
    std::unique_ptr<LockablePointer<ZynServiceClient>> client_ =
        std::make_unique<LockablePointer<ZynServiceClient>>();
    ZynServiceMonitor monitor_{*filter_, *client_};
};

TEST_F(ZynServiceMonitorTest, NoServiceNoClient) {
    monitor_.Check();
    EXPECT_EQ(monitor_.ServicePid(), 0U);
    EXPECT_FALSE(HasClient());
}

TEST_F(ZynServiceMonitorTest, FoundServiceGetsARegisteredClient) {
    service_.Announce(std::to_string(::getpid()));
    const Confirming confirming(service_);
    monitor_.Check();
    EXPECT_EQ(monitor_.ServicePid(), static_cast<unsigned int>(::getpid()));
    EXPECT_TRUE(HasClient());
    EXPECT_EQ(service_.Sent(), service_.Registration());
    EXPECT_THAT(run_.Trace(), Contains("Service started:" + std::to_string(::getpid())));
    monitor_.Check();
    EXPECT_EQ(confirming.Calls(), 1) << "a running service is not registered with again";
}

TEST_F(ZynServiceMonitorTest, FailedRegistrationLeavesTheServiceNotFoundAndIsTriedAgain) {
    service_.Announce(std::to_string(::getpid()));
    {
        const SleepScript silence;
        EXPECT_EQ(FailureTextOf([this] { monitor_.Check(); }), kTimeout);
        EXPECT_EQ(silence.Calls(), 20);
    }
    EXPECT_EQ(monitor_.ServicePid(), 0U);
    EXPECT_FALSE(HasClient());
    const Confirming confirming(service_);
    monitor_.Check();
    EXPECT_TRUE(HasClient());
}

TEST_F(ZynServiceMonitorTest, ClientWithoutMemoryLeavesTheServiceNotFoundAndIsTriedAgain) {
    service_.Announce(std::to_string(::getpid()));
    {
        const LibcFault fault(LibcCall::kNew, ENOMEM);
        EXPECT_EQ(FailureTextOf([this] { monitor_.Check(); }),
                  "Memory allocation failed:Can not create ZynServiceClient object");
    }
    EXPECT_EQ(monitor_.ServicePid(), 0U);
    EXPECT_FALSE(HasClient());
    const Confirming confirming(service_);
    monitor_.Check();
    EXPECT_TRUE(HasClient());
}

TEST_F(ZynServiceMonitorTest, ClientGoesWithTheServiceAndComesWithTheNextOne) {
    auto process = std::make_unique<IdleProcess>();
    service_.Announce(process->Pid());
    const Confirming confirming(service_);
    monitor_.Check();
    ASSERT_TRUE(HasClient());
    process->End();
    monitor_.Check();
    EXPECT_FALSE(HasClient());
    EXPECT_EQ(monitor_.ServicePid(), 0U);
    EXPECT_EQ(run_.Trace().back(), "Service stopped.");
    EXPECT_FALSE(service_.ClientFilesExist());
    monitor_.Check();
    EXPECT_FALSE(HasClient()) << "the pid file names a process that is gone";
    process = std::make_unique<IdleProcess>();
    service_.Announce(process->Pid());
    monitor_.Check();
    EXPECT_TRUE(HasClient());
}

TEST_F(ZynServiceMonitorTest, ServiceThatIsGoneIsLeftAfterTwentySleepsAllTheSame) {
    IdleProcess process;
    service_.Announce(process.Pid());
    {
        const Confirming confirming(service_);
        monitor_.Check();
    }
    process.End();
    const SleepScript silence;
    monitor_.Check();
    EXPECT_EQ(silence.Calls(), 20);
    EXPECT_FALSE(HasClient());
    EXPECT_EQ(monitor_.ServicePid(), 0U);
    EXPECT_THAT(run_.Trace(), Contains("Exception happened during service client destruction"));
}

TEST_F(ZynServiceMonitorTest, WorkerLooksEvery100MillisecondsUntilStopped) {
    const SleepScript script([this](int call) {
        if (call == 5) {
            monitor_.Stop();
        }
    });
    monitor_.Worker();
    EXPECT_EQ(script.Calls(), 5);
    EXPECT_EQ(script.Microseconds(), 100'000U);
}

TEST_F(ZynServiceMonitorTest, FailedRegistrationEndsTheWorker) {
    const SleepScript silence([this](int call) {
        if (call == 1) {
            service_.Announce(std::to_string(::getpid()));
        }
    });
    EXPECT_EQ(FailureTextOf([this] { monitor_.Worker(); }), kTimeout);
    EXPECT_EQ(silence.Calls(), 21);
}

}  // namespace
