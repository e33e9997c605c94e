// Expansion of the path templates by which every file of the facility is named.
#ifndef ZYN_SUPPORT_RUNTIMEINFO_H
#define ZYN_SUPPORT_RUNTIMEINFO_H

#include <string>

class CRuntimeInfo {
  public:
    CRuntimeInfo() = delete;

    // The run-time directory, shared with the tracing service. It must exist; nothing creates it.
    static constexpr const char* kRunDirectory = "$(KORVA_VANTOREL_DIR)/temp/ZYN/";

    // Replaces every "$(NAME)" by the variable's value (nothing when it is not set) and a "/",
    // drops everything from an unterminated "$(" on, then turns each pair "//" into "/" in one pass
    // from the left ("a///b" becomes "a//b"). Reads the environment on each call; nothing is
    // cached.
    static std::string FormatEnvironmentVariables(const std::string& text);
};

#endif
