#ifndef ZYN_TESTING_LOGS_CALLTRACE_H
#define ZYN_TESTING_LOGS_CALLTRACE_H

// Calls as programs trace them: each thread enters and leaves functions, one within the other; now
// and then the end of a call is missing, as after a return that nobody traced.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "testing/logs/LogVocabulary.h"

class CallTrace {
  public:
    struct Event {
        std::string_view module;
        std::string_view client;
        std::string_view label;  // "Entry", "Exit", or "Info" for what is neither
    };

    // The next event of a thread; `message` is replaced.
    Event Next(std::uint32_t process, std::uint32_t thread, LogRandom& random,
               std::string& message);

  private:
    // The functions that have begun on a thread and not ended, as indices.
    using Thread = std::vector<std::size_t>;
    std::map<std::pair<std::uint32_t, std::uint32_t>, Thread> threads_;
};

#endif
