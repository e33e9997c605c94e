#ifndef ZYN_TESTING_PROCESS_TERMINAL_H
#define ZYN_TESTING_PROCESS_TERMINAL_H

// A terminal that a program under test writes to: up to some 4,000 bytes, which wait to be read.
// Failures throw std::system_error.

#include <string>

class Terminal {
  public:
    // columns: its width; 0: the terminal does not know it.
    explicit Terminal(unsigned columns = 0);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    // Of the side that the program opens.
    [[nodiscard]] std::string Path() const;

    // All that was written, once the program has closed its side. Lines end with a carriage return
    // and a line feed. To be called once.
    std::string Shown();

  private:
    int terminal_;
};

#endif
