#ifndef ZYN_TESTING_PROCESS_ENVIRONMENTVARIABLE_H
#define ZYN_TESTING_PROCESS_ENVIRONMENTVARIABLE_H

// Sets or removes one environment variable of this process for the length of a scope.

#include <optional>
#include <string>

// The value from before comes back at the end of the scope; scopes of the same variable must nest.
// The environment has no lock: use it while the test has no other thread that reads it.
class EnvironmentVariable {
  public:
    EnvironmentVariable(std::string name, const std::optional<std::string>& value);
    ~EnvironmentVariable();
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

    // Changes the value within the scope; std::nullopt removes the variable.
    void Set(const std::optional<std::string>& value) const;

  private:
    std::string name_;
    std::optional<std::string> before_;
};

#endif
