#ifndef ZYN_TESTING_PROCESS_FILELOCK_H
#define ZYN_TESTING_PROCESS_FILELOCK_H

#include <sys/types.h>

#include <string>

// A record lock on the first byte of a file, held by a child process. Failures throw
// std::system_error.
class FileLock {
  public:
    explicit FileLock(const std::string& path);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock() { Release(); }

    // The holder's, also after it has gone.
    [[nodiscard]] pid_t Pid() const { return child_; }

    // Ends the child, and with it the lock; does nothing the second time.
    void Release();

  private:
    pid_t child_ = -1;
    bool held_ = false;
};

#endif
