// One environment variable for the length of a scope (see EnvironmentVariable.h).

#include "testing/process/EnvironmentVariable.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

EnvironmentVariable::EnvironmentVariable(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)) {
    if (const char* before = getenv(name_.c_str())) {
        before_ = before;
    }
    Set(value);
}

EnvironmentVariable::~EnvironmentVariable() {
    // The name was accepted once and the old value fitted, so only memory could be missing here.
    if (before_) {
        setenv(name_.c_str(), before_->c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
}

void EnvironmentVariable::Set(const std::optional<std::string>& value) const {
    const int failed = value ? setenv(name_.c_str(), value->c_str(), 1) : unsetenv(name_.c_str());
    if (failed != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot set " + name_);
    }
}
