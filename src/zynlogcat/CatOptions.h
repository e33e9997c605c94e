// The command line of zynlog-cat.
#ifndef ZYN_ZYNLOGCAT_CATOPTIONS_H
#define ZYN_ZYNLOGCAT_CATOPTIONS_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "zynlogcat/Selection.h"

// A mistake in the command line; what() is for the user.
class CatUsageError : public std::invalid_argument {
  public:
    using std::invalid_argument::invalid_argument;
};

enum class ColorMode : std::uint8_t { kAuto, kAlways, kNever };

struct CatOptions {
    std::vector<std::string> logs;  // as typed
    Conditions conditions;
    std::optional<std::uint32_t> lines;
    std::string form = "columns";
    std::string beginLabel = "Entry";
    std::string endLabel = "Exit";
    std::string cursorFile;  // empty: none
    ColorMode color = ColorMode::kAuto;
    bool header = true;
    bool utc = false;
    bool merge = false;
    bool follow = false;
    bool live = false;
    bool quiet = false;
    bool help = false;
    bool version = false;
};

extern const char* const kCatUsage;

// Throws CatUsageError for what cannot be read or does not go together. With --utc the zone of the
// process becomes UTC, before any time is read. Whether --follow meets compressed files is not
// known yet.
[[nodiscard]] CatOptions ParseCatOptions(int argc, char** argv);

#endif
