// The locks of the facility and the guards that hold them for a scope. Objects inside a process are
// guarded by mutexes, the channel to the tracing service by a record lock on a lock file. Every
// failing system call is a CheckOSCall; a failed pthread call hands its result to errno first, so
// the text names the right error.
//
// The guards' destructors release the lock and raise the failure to do so, unless another
// exception is in flight: then it is dropped, because two at once would end the process.
#ifndef ZYN_SUPPORT_NOREENTRANTSPINLOCKPOLICY_H
#define ZYN_SUPPORT_NOREENTRANTSPINLOCKPOLICY_H

#include <pthread.h>

#include <concepts>
#include <exception>
#include <string>
#include <utility>

#include "Support/DropFailure.h"
#include "Support/FileDescriptor.h"

// What a guard can hold.
template <typename T>
concept SyncPolicy = requires(T& policy) {
    policy.Lock();
    policy.Unlock();
};

// A mutex with default attributes. Not recursive: locking it twice from one thread never returns.
class CriticalSectionSyncPolicy {
  public:
    // Throws CheckOSCall "Unable to initiate mutex".
    CriticalSectionSyncPolicy();
    CriticalSectionSyncPolicy(const CriticalSectionSyncPolicy&) = delete;
    CriticalSectionSyncPolicy& operator=(const CriticalSectionSyncPolicy&) = delete;
    // Throws CheckOSCall "Unable to destroy mutex".
    ~CriticalSectionSyncPolicy() noexcept(false);

    // Throws CheckOSCall "Unable to lock mutex".
    void Lock();
    // Throws CheckOSCall "Unable to unlock mutex".
    void Unlock();

  private:
    pthread_mutex_t mutex_{};
};

// A lock between processes: a write lock on the first byte of "<run directory><name>.lck". Threads
// of one process do not exclude each other by it. Whoever is done with it removes the file, and the
// next user creates it again.
class InterProcessLock {
  public:
    // Creates the file, open to everyone, when it is not there; a link or anything but a file is
    // refused. Throws CheckOSCall "Unable to open lock file".
    explicit InterProcessLock(const std::string& name);
    InterProcessLock(const InterProcessLock&) = delete;
    InterProcessLock& operator=(const InterProcessLock&) = delete;
    // Removes the file. Failures are dropped.
    ~InterProcessLock();

    // Waits as long as another process holds the lock; after 2 s the system log says so once, under
    // "ZYNAPI", with the holder's process id where it can be known. Throws CheckOSCall "Can not
    // lock".
    void Lock();
    // Throws CheckOSCall "Can not unlock".
    void Unlock();

  private:
    void ReportHolder() const noexcept;

    FileDescriptor fd_;
    std::string path_;
};

// Holds a lock for its own life.
template <SyncPolicy Policy>
class AutoSync {
  public:
    explicit AutoSync(Policy& policy) : policy_(&policy) { policy_->Lock(); }
    AutoSync(const AutoSync&) = delete;
    AutoSync& operator=(const AutoSync&) = delete;
    virtual ~AutoSync() noexcept(false) {  // NOLINT(bugprone-exception-escape): see file top
        if (std::uncaught_exceptions() == 0) {
            policy_->Unlock();
        } else {
            DropFailure([this] { policy_->Unlock(); });
        }
    }

  protected:
    [[nodiscard]] Policy& Held() const noexcept { return *policy_; }

  private:
    Policy* policy_;
};

template <typename T>
class AutoLockingPointer;

// An object that is reached only under its mutex, through an AutoLockingPointer. Does not delete
// the object when it goes: its user does, while the object's surroundings still live.
template <typename T>
class LockablePointer {
  public:
    void Lock() { mutex_.Lock(); }
    void Unlock() { mutex_.Unlock(); }

  private:
    friend class AutoLockingPointer<T>;
    CriticalSectionSyncPolicy mutex_;
    T* object_ = nullptr;
};

// Access to the object of a LockablePointer, with its mutex held for the guard's life.
template <typename T>
class AutoLockingPointer : public AutoSync<LockablePointer<T>> {
  public:
    explicit AutoLockingPointer(LockablePointer<T>& pointer)
        : AutoSync<LockablePointer<T>>(pointer) {}

    [[nodiscard]] T* Get() const noexcept { return this->Held().object_; }
    [[nodiscard]] explicit operator bool() const noexcept { return Get() != nullptr; }
    T* operator->() const noexcept { return Get(); }
    T& operator*() const noexcept { return *Get(); }

    // Takes over an object made by new; there must be none yet.
    void Set(T* object) noexcept { this->Held().object_ = object; }

    // Deletes the object, if any, and clears the pointer, also when the object's destructor throws
    // (a unique_ptr would end the process there).
    void Delete() { delete std::exchange(this->Held().object_, nullptr); }
};

// Base of objects shared between threads.
class ReferenceCount {
  public:
    ReferenceCount() = default;
    ReferenceCount(const ReferenceCount&) = delete;
    ReferenceCount& operator=(const ReferenceCount&) = delete;
    virtual ~ReferenceCount() noexcept(false) = default;

    void Lock() { mutex_.Lock(); }
    void Unlock() { mutex_.Unlock(); }

  private:
    CriticalSectionSyncPolicy mutex_;
};

// Both take the object's one mutex: readers do not share. Which one is used only documents the
// intention.
class AutoReadReference : public AutoSync<ReferenceCount> {
  public:
    using AutoSync::AutoSync;
};

class AutoWriteReference : public AutoSync<ReferenceCount> {
  public:
    using AutoSync::AutoSync;
};

#endif
