// What the C library has once per process and does not guard, or guards by locks that a fork does
// not know of: the umask, the connection to the system log, the time zone. A child that is forked
// amid another thread's call would have an umask that nobody puts back, or wait for ever at its
// first log line. So each is used under a mutex of its own, and whoever forks holds them all.
#ifndef ZYN_SUPPORT_PROCESSSTATE_H
#define ZYN_SUPPORT_PROCESSSTATE_H

#include <sys/types.h>

#include <mutex>

namespace processstate {

// Each is held for one call, and no lock is taken under it.
extern std::mutex umaskMutex;
extern std::mutex systemLogMutex;
extern std::mutex timeZoneMutex;

// All of them, for the thread that forks, which releases them on either side.
void HoldAll();
void ReleaseAll() noexcept;

}  // namespace processstate

// Sets the umask to 0 so that a file shared between processes gets exactly the requested permission
// bits, and puts the old mask back: every change of the umask is made in a section like this.
// Sections of all threads exclude each other. Not reentrant.
class UmaskSection {
  public:
    UmaskSection();
    UmaskSection(const UmaskSection&) = delete;
    UmaskSection& operator=(const UmaskSection&) = delete;
    // Does not touch errno.
    ~UmaskSection();

    // Ends the section and leaves the mask at 0. Does not touch errno.
    void Abandon() noexcept;

  private:
    std::unique_lock<std::mutex> lock_;
    mode_t previous_;
};

#endif
