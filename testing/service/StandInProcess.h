#ifndef ZYN_TESTING_SERVICE_STANDINPROCESS_H
#define ZYN_TESTING_SERVICE_STANDINPROCESS_H

// zyn-standin-service as a child of a test: started, watched line by line, given commands, ended.

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "testing/service/ServiceFiles.h"

namespace standin {

inline constexpr std::chrono::seconds kSimPatience{30};

// One thread at a time. The destructor kills and collects the child; only the child's own
// Terminate, "quit" or SIGINT removes its files.
class StandInProcess {
  public:
    // Starts the program on `runDirectory` and returns when it says that it is up. Throws
    // std::runtime_error when it cannot be started or ends instead.
    StandInProcess(const std::string& program, const std::string& runDirectory,
                   const std::vector<std::string>& options = {});
    StandInProcess(const StandInProcess&) = delete;
    StandInProcess& operator=(const StandInProcess&) = delete;
    ~StandInProcess();

    [[nodiscard]] pid_t Pid() const { return pid_; }

    // One line of commands, without its line end: "pause", "send 0A08...", ... Throws
    // std::system_error when the program has ended.
    void Command(const std::string& line);
    // The end of all commands, which the program is to survive.
    void CloseCommands();

    // Waits until `count` lines with this text (the time stamp left out) have been printed; false
    // when the program ends, or the deadline passes, before that.
    [[nodiscard]] bool WaitForLine(const std::string& text, std::size_t count = 1);

    // All lines so far, each without its time stamp "HH:MM:SS.mmm ". Does not wait; but a program
    // whose lines nobody takes ends up waiting itself.
    [[nodiscard]] std::vector<std::string> Lines();
    // The same as they were printed.
    [[nodiscard]] const std::string& Output() const { return output_; }

    void Signal(int signal) const;
    // After a line "stops at ...": waits until the child is really stopped.
    [[nodiscard]] bool WaitUntilStopped() const;
    // Waits for the end (of its own, or after Signal) and collects the child: its exit status, 128
    // plus the signal that ended it, or -1 when the deadline passes first.
    [[nodiscard]] int WaitForEnd();
    // SIGTERM and WaitForEnd.
    [[nodiscard]] int Terminate();

  private:
    // Reads what there is, waiting until the deadline for something; false at the end of the
    // output.
    bool ReadMore(std::chrono::steady_clock::time_point deadline);

    pid_t pid_ = -1;
    Descriptor commands_;
    Descriptor lines_;
    std::string output_;
};

}  // namespace standin

#endif  // ZYN_TESTING_SERVICE_STANDINPROCESS_H
