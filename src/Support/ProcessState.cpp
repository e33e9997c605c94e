#include "Support/ProcessState.h"

constinit std::mutex processstate::umaskMutex;
constinit std::mutex processstate::systemLogMutex;
constinit std::mutex processstate::timeZoneMutex;
