#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include "Support/NoReentrantSpinLockPolicy.h"
#include "Support/ValidationException.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/RaisedFailure.h"
#include "testing/faults/LibcFaults.h"
#include "testing/faults/SyslogCapture.h"
#include "testing/process/FileLock.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Mutex = CriticalSectionSyncPolicy;

// Whether another process could take the record lock of a byte of the file now.
bool IsFree(const std::string& path, off_t byte = 0) {
    const pid_t child = ::fork();
    if (child == 0) {
        const int fd = ::open(path.c_str(), O_RDWR);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = byte;
        lock.l_len = 1;
        ::_exit(fd != -1 && ::fcntl(fd, F_SETLK, &lock) == 0 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(CriticalSectionSyncPolicy, FailureToCreateIsReported) {
    const LibcFault fault(LibcCall::kMutexInit, ENOMEM);
    EXPECT_EQ(FailureTextOf([] { const Mutex mutex; }),
              "Unable to initiate mutex [OS call failed:12(Cannot allocate memory)]");
}

TEST(CriticalSectionSyncPolicy, FailureToLockHandsItsResultToErrno) {
    Mutex mutex;
    const LibcFault fault(LibcCall::kMutexLock, EDEADLK);
    errno = 0;
    EXPECT_EQ(FailureTextOf([&] { mutex.Lock(); }),
              "Unable to lock mutex [OS call failed:35(Resource deadlock avoided)]");
}

TEST(CriticalSectionSyncPolicy, FailureToUnlockIsReported) {
    Mutex mutex;
    mutex.Lock();
    const LibcFault fault(LibcCall::kMutexUnlock, EPERM);
    EXPECT_EQ(FailureTextOf([&] { mutex.Unlock(); }),
              "Unable to unlock mutex [OS call failed:1(Operation not permitted)]");
}

TEST(CriticalSectionSyncPolicy, FailureToDestroyIsReported) {
    EXPECT_EQ(FailureTextOf([] {
                  const Mutex mutex;
                  const LibcFault fault(LibcCall::kMutexDestroy, EBUSY);
                  // Declared after the fault, so destroyed before it.
                  const Mutex destroyed;
              }),
              "Unable to destroy mutex [OS call failed:16(Device or resource busy)]");
}

TEST(CriticalSectionSyncPolicy, FailureToDestroyIsDroppedBehindAnotherException) {
    EXPECT_EQ(FailureTextOf([] {
                  const LibcFault fault(LibcCall::kMutexDestroy, EBUSY);
                  const Mutex destroyed;
                  errno = ENOENT;
                  ZYN_CHECK_OS_CALL(false, "first");
              }),
              "first [OS call failed:2(No such file or directory)]");
}

TEST(AutoSync, ExcludesOtherThreadsForItsLife) {
    Mutex mutex;
    int inside = 0;
    int most = 0;
    const auto work = [&] {
        for (int i = 0; i < 1000; ++i) {
            const AutoSync<Mutex> guard(mutex);
            most = std::max(most, ++inside);
            --inside;
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(most, 1);
}

TEST(AutoSync, FailureToUnlockLeavesTheDestructor) {
    Mutex mutex;
    const LibcFault fault(LibcCall::kMutexUnlock, EPERM);
    EXPECT_EQ(FailureTextOf([&] { const AutoSync<Mutex> guard(mutex); }),
              "Unable to unlock mutex [OS call failed:1(Operation not permitted)]");
}

TEST(AutoSync, FailureToUnlockIsDroppedBehindAnotherException) {
    Mutex mutex;
    const LibcFault fault(LibcCall::kMutexUnlock, EPERM);
    EXPECT_EQ(FailureTextOf([&] {
                  const AutoSync<Mutex> guard(mutex);
                  errno = ENOENT;
                  ZYN_CHECK_OS_CALL(false, "first");
              }),
              "first [OS call failed:2(No such file or directory)]");
    EXPECT_TRUE(fault.Happened());
}

TEST(AutoSync, FailureToLockLeavesNothingToUnlock) {
    Mutex mutex;
    const LibcFault unlock(LibcCall::kMutexUnlock, EPERM);
    {
        const LibcFault lock(LibcCall::kMutexLock, EINVAL);
        EXPECT_EQ(FailureTextOf([&] { const AutoSync<Mutex> guard(mutex); }),
                  "Unable to lock mutex [OS call failed:22(Invalid argument)]");
    }
    EXPECT_FALSE(unlock.Happened());
}

TEST(Guards, AllHaveAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<AutoSync<Mutex>>);
    EXPECT_TRUE(std::has_virtual_destructor_v<AutoSync<InterProcessLock>>);
    EXPECT_TRUE(std::has_virtual_destructor_v<AutoLockingPointer<int>>);
    EXPECT_TRUE(std::has_virtual_destructor_v<AutoReadReference>);
    EXPECT_TRUE(std::has_virtual_destructor_v<AutoWriteReference>);
}

TEST(Guards, ReadersDoNotShare) {
    ReferenceCount object;
    std::atomic<bool> entered{false};
    std::thread other;
    {
        const AutoReadReference first(object);
        other = std::thread([&] {
            const AutoReadReference second(object);
            entered = true;
        });
        // Nothing to wait for: the other thread cannot be inside while this guard lives.
        std::this_thread::yield();
        EXPECT_FALSE(entered);
    }
    other.join();
    EXPECT_TRUE(entered);
}

TEST(Guards, WriteReferenceTakesTheMutexOfReadReference) {
    ReferenceCount object;
    const LibcFault fault(LibcCall::kMutexLock, EDEADLK, 2);
    const AutoReadReference reader(object);
    EXPECT_EQ(FailureTextOf([&] { const AutoWriteReference writer(object); }),
              "Unable to lock mutex [OS call failed:35(Resource deadlock avoided)]");
}

struct Throwing {
    ~Throwing() noexcept(false) { ZYN_CHECK_MEMORY_ALLOCATION(false, "gone"); }
};

TEST(AutoLockingPointer, StartsEmptyAndGivesAccessToWhatWasSet) {
    LockablePointer<std::string> pointer;
    {
        AutoLockingPointer<std::string> guard(pointer);
        EXPECT_FALSE(guard);
        guard.Set(new std::string("text"));
    }
    AutoLockingPointer<std::string> guard(pointer);
    ASSERT_TRUE(guard);
    EXPECT_EQ(*guard, "text");
    EXPECT_EQ(guard->size(), 4U);
    guard.Delete();
    EXPECT_EQ(guard.Get(), nullptr);
}

TEST(AutoLockingPointer, IsClearedEvenIfTheObjectsDestructorThrows) {
    LockablePointer<Throwing> pointer;
    AutoLockingPointer<Throwing> guard(pointer);
    guard.Set(new Throwing);
    EXPECT_EQ(FailureTextOf([&] { guard.Delete(); }), "Memory allocation failed:gone");
    EXPECT_FALSE(guard);
}

TEST(InterProcessLock, FileIsThereForItsLifeAndOpenToEveryone) {
    const RunDirectory run;
    const mode_t before = ::umask(022);
    {
        const InterProcessLock lock("Name");
        EXPECT_THAT(run.Files(), ElementsAre("Name.lck"));
        struct stat status {};
        ASSERT_EQ(::stat((run / "Name.lck").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0666U);
    }
    EXPECT_THAT(run.Files(), IsEmpty());
    EXPECT_EQ(::umask(before), 022U);
}

TEST(InterProcessLock, UnopenableFileIsReportedAndLeavesUmaskAtZero) {
    const EnvironmentVariable product("KORVA_VANTOREL_DIR", "/nonexistent");
    const mode_t before = ::umask(022);
    EXPECT_EQ(FailureTextOf([] { const InterProcessLock lock("Name"); }),
              "Unable to open lock file [OS call failed:2(No such file or directory)]");
    EXPECT_EQ(::umask(before), 0U) << "kept as is: the mask stays at 0 after a failed open";
}

TEST(InterProcessLock, GuardKeepsOtherProcessesOutUntilItGoes) {
    const RunDirectory run;
    InterProcessLock lock("Name");
    {
        const AutoSync<InterProcessLock> guard(lock);
        EXPECT_FALSE(IsFree(run / "Name.lck"));
    }
    EXPECT_TRUE(IsFree(run / "Name.lck"));
}

TEST(InterProcessLock, LinkIsRefusedAndNothingIsMadeWhereItPoints) {
    const RunDirectory run;
    ASSERT_EQ(::symlink("elsewhere", (run / "Name.lck").c_str()), 0);
    const mode_t before = ::umask(022);
    EXPECT_EQ(FailureTextOf([] { const InterProcessLock lock("Name"); }),
              "Unable to open lock file [OS call failed:40(Too many levels of symbolic links)]");
    ::umask(before);
    EXPECT_THAT(run.Files(), ElementsAre("Name.lck"));
}

TEST(InterProcessLock, FileMayHaveOtherNames) {
    const RunDirectory run;
    WriteFile(run / "other", "");
    ASSERT_EQ(::link((run / "other").c_str(), (run / "Name.lck").c_str()), 0);
    EXPECT_EQ(FailureTextOf([] { const InterProcessLock lock("Name"); }), kNoFailure);
}

// Of this process, by their targets.
int DescriptorFlagsOf(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) == path) {
            return ::fcntl(std::stoi(entry.path().filename()), F_GETFD);
        }
    }
    return -1;
}

TEST(InterProcessLock, FileIsNotInheritedByPrograms) {
    const RunDirectory run;
    const InterProcessLock lock("Name");
    const std::string path = std::filesystem::canonical(run / "Name.lck");
    EXPECT_EQ(DescriptorFlagsOf(path), FD_CLOEXEC)
        << "a program started meanwhile would hold the file open";
}

TEST(InterProcessLock, OnlyTheFirstByteIsLocked) {
    const RunDirectory run;
    InterProcessLock lock("Name");
    const AutoSync<InterProcessLock> guard(lock);
    EXPECT_FALSE(IsFree(run / "Name.lck", 0));
    EXPECT_TRUE(IsFree(run / "Name.lck", 1)) << "services may use the bytes behind it";
}

TEST(InterProcessLock, IsTriedEveryTenMilliseconds) {
    const RunDirectory run;
    const SyslogCapture syslog;
    InterProcessLock lock("Name");
    FileLock holder(run / "Name.lck");
    const SleepScript script([&](int call) {
        if (call == 199) {
            holder.Release();
        }
    });
    lock.Lock();
    EXPECT_EQ(script.Calls(), 199);
    EXPECT_EQ(script.Microseconds(), 10'000U);
    EXPECT_TRUE(SyslogCapture::Take().empty());
    EXPECT_FALSE(IsFree(run / "Name.lck"));
}

TEST(InterProcessLock, AfterTwoSecondsTheSystemLogNamesTheHolderOnceAndTheWaitGoesOn) {
    const RunDirectory run;
    const SyslogCapture syslog;
    InterProcessLock lock("Name");
    FileLock holder(run / "Name.lck");
    const SleepScript script;
    // 200 times F_SETLK, F_GETLK, then the wait, during which the holder goes.
    const LibcFault wait(
        LibcCall::kFcntl, [&] { holder.Release(); }, 202);
    lock.Lock();
    EXPECT_TRUE(wait.Happened());
    EXPECT_EQ(script.Calls(), 200);
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].ident, "ZYNAPI");
    EXPECT_EQ(records[0].priority, LOG_ERR);
    EXPECT_EQ(records[0].text, "Waiting for " + (run / "Name.lck") + ", locked by process " +
                                   std::to_string(holder.Pid()));
    EXPECT_FALSE(IsFree(run / "Name.lck"));
}

TEST(InterProcessLock, HolderThatCannotBeKnownIsAnotherProcess) {
    const RunDirectory run;
    const SyslogCapture syslog;
    InterProcessLock lock("Name");
    FileLock holder(run / "Name.lck");
    const SleepScript script([&](int call) {
        if (call == 200) {
            holder.Release();
        }
    });
    lock.Lock();
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "Waiting for " + (run / "Name.lck") + ", locked by another process");
}

TEST(InterProcessLock, FailureOfTheLongWaitIsReported) {
    const RunDirectory run;
    const SyslogCapture syslog;
    InterProcessLock lock("Name");
    const FileLock holder(run / "Name.lck");
    const SleepScript script;
    const LibcFault fault(LibcCall::kFcntl, EDEADLK, 202);
    EXPECT_EQ(FailureTextOf([&] { lock.Lock(); }),
              "Can not lock [OS call failed:35(Resource deadlock avoided)]");
}

TEST(InterProcessLock, SecondProcessWaitsForTheFirst) {
    const RunDirectory run;
    int locked[2];
    ASSERT_EQ(::pipe(locked), 0);
    InterProcessLock lock("Name");
    pid_t child = -1;
    {
        const AutoSync<InterProcessLock> guard(lock);
        child = ::fork();
        if (child == 0) {
            const int fd = ::open((run / "Name.lck").c_str(), O_RDWR);
            struct flock record {};
            record.l_type = F_WRLCK;
            record.l_whence = SEEK_SET;
            record.l_len = 1;
            const bool taken = ::fcntl(fd, F_SETLKW, &record) == 0;
            ::_exit(taken && ::write(locked[1], "x", 1) == 1 ? 0 : 1);
        }
        ASSERT_EQ(::fcntl(locked[0], F_SETFL, O_NONBLOCK), 0);
        char byte = 0;
        EXPECT_EQ(::read(locked[0], &byte, 1), -1) << "the child got in beside the guard";
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ::close(locked[0]);
    ::close(locked[1]);
}

TEST(InterProcessLock, SignalDuringTheWaitIsNoFailure) {
    const RunDirectory run;
    InterProcessLock lock("Name");
    const LibcFault fault(LibcCall::kFcntl, EINTR);
    const AutoSync<InterProcessLock> guard(lock);
    EXPECT_TRUE(fault.Happened());
    EXPECT_FALSE(IsFree(run / "Name.lck"));
}

TEST(InterProcessLock, FailureToLockIsReported) {
    const RunDirectory run;
    InterProcessLock lock("Name");
    const LibcFault fault(LibcCall::kFcntl, ENOLCK);
    EXPECT_EQ(FailureTextOf([&] { const AutoSync<InterProcessLock> guard(lock); }),
              "Can not lock [OS call failed:37(No locks available)]");
}

TEST(InterProcessLock, FailureToUnlockIsReported) {
    const RunDirectory run;
    InterProcessLock lock("Name");
    const LibcFault fault(LibcCall::kFcntl, EIO, 2);
    EXPECT_EQ(FailureTextOf([&] { const AutoSync<InterProcessLock> guard(lock); }),
              "Can not unlock [OS call failed:5(Input/output error)]");
}

TEST(InterProcessLock, DestructorDropsItsFailuresAndTracesThem) {
    const RunDirectory run(true);
    {
        const InterProcessLock lock("Name");
        ASSERT_EQ(::unlink((run / "Name.lck").c_str()), 0);
    }
    EXPECT_THAT(run.Trace(), ElementsAre(::testing::EndsWith(
                                 "-Error: Can not remove lock file  [OS call failed:2(No such "
                                 "file or directory)]")));
}

TEST(InterProcessLock, FailureToCloseDoesNotKeepTheFile) {
    const RunDirectory run(true);
    auto lock = std::make_unique<InterProcessLock>("Name");
    const LibcFault fault(LibcCall::kClose, EIO);
    lock.reset();
    EXPECT_THAT(run.Files(), IsEmpty());
    EXPECT_THAT(run.Trace(),
                ElementsAre(::testing::EndsWith(
                    "-Can not close lock file [OS call failed:5(Input/output error)]")));
}

}  // namespace
