#ifndef ZYN_TESTING_PROCESS_FILELEASE_H
#define ZYN_TESTING_PROCESS_FILELEASE_H

#include <sys/types.h>

#include <string>

// A lease on a file, as file servers take them, held by a child process: whoever opens the file
// meanwhile makes the system ask for the lease, and waits or is refused until it is given up. The
// file must be the user's own and open nowhere. Failures throw std::system_error.
class FileLease {
  public:
    explicit FileLease(const std::string& path);
    FileLease(const FileLease&) = delete;
    FileLease& operator=(const FileLease&) = delete;
    ~FileLease();

    // Returns when another process waits in its open.
    void WaitUntilAsked() const;
    // Gives the lease up. Returns when that is done; does nothing the second time.
    void Release();

  private:
    pid_t child_ = -1;
    int fromChild_ = -1;
    int toChild_ = -1;
};

#endif
