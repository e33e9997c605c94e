#ifndef ZYN_TESTS_SUPPORT_RAISEDFAILURE_H
#define ZYN_TESTS_SUPPORT_RAISEDFAILURE_H

// What an action raised: the text a user reads and the source file the diagnostic log names.

#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "Support/ValidationException.h"

// The text when nothing was raised.
inline constexpr const char* kNoFailure = "<nothing was raised>";

struct RaisedFailure {
    std::string text = kNoFailure;
    std::string file;

    // Whether the check that raised it stands in the module of this name.
    [[nodiscard]] bool IsFrom(std::string_view module) const {
        return file.ends_with(module) &&
               std::string_view(file).substr(0, file.size() - module.size()).ends_with('/');
    }
};

template <typename Action>
[[nodiscard]] RaisedFailure FailureOf(Action&& action) {
    try {
        action();
    } catch (const std::exception& failure) {
        const auto* place = dynamic_cast<const GenericExtendedException*>(&failure);
        return {failure.what(), place != nullptr ? place->file : std::string()};
    }
    return {};
}

// The text alone.
template <typename Action>
[[nodiscard]] std::string FailureTextOf(Action&& action) {
    return FailureOf(std::forward<Action>(action)).text;
}

#endif
