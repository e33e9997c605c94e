// Names of processes in the report.
#ifndef ZYN_ZYNDOCTOR_PROCESSNAME_H
#define ZYN_ZYNDOCTOR_PROCESSNAME_H

#include <string>

// Whether a process of this id exists, as the facility's programs see it.
[[nodiscard]] bool ProcessLives(unsigned int pid);

// "process 12 (command line)"; without the brackets when it cannot be had.
[[nodiscard]] std::string ProcessName(unsigned int pid);

#endif
