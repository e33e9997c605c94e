// The process umask is one word for all threads: every change of it is made in a section here.
#ifndef ZYN_SUPPORT_UMASK_H
#define ZYN_SUPPORT_UMASK_H

#include <sys/types.h>

#include <mutex>

// Sets the umask to 0 so that a file shared between processes gets exactly the permission bits
// asked for, and puts the old mask back. Sections of all threads exclude each other. Not reentrant.
class UmaskSection {
  public:
    UmaskSection();
    UmaskSection(const UmaskSection&) = delete;
    UmaskSection& operator=(const UmaskSection&) = delete;
    ~UmaskSection();

    // Ends the section early, before the destructor. Does not touch errno.
    void Restore() noexcept;

    // Ends the section and leaves the mask at 0. Does not touch errno.
    void Abandon() noexcept;

  private:
    std::unique_lock<std::mutex> lock_;
    mode_t previous_;
};

#endif
