// The standard input as a file that can be opened by name, which the readers of logs need.
#ifndef ZYN_ZYNVERIFY_STANDARDINPUT_H
#define ZYN_ZYNVERIFY_STANDARDINPUT_H

#include <string>

// A file is taken as it is, from its start. What comes through a pipe is copied to its end into a
// file without a name in TMPDIR, or /tmp, which is gone with the process.
class StandardInput {
  public:
    // Throws std::system_error "standard input" when it cannot be read, or the copy not be written.
    StandardInput();

    [[nodiscard]] std::string Directory() const { return "/proc/self/fd"; }
    // Of the file in that directory, valid until the process ends.
    [[nodiscard]] std::string Name() const { return std::to_string(descriptor_); }

  private:
    int descriptor_;
};

#endif
