// Where the XML configuration file lies, as the environment says.
#ifndef ZYN_SUPPORT_CONFIGPATH_H
#define ZYN_SUPPORT_CONFIGPATH_H

#include <string>
#include <vector>

// The first set variable of an ordered list, taken as a directory.
class ConfigPath {
  public:
    // names: environment variables, the first of them having precedence.
    explicit ConfigPath(std::vector<std::string> names);
    ConfigPath(const ConfigPath&) = default;
    ConfigPath(ConfigPath&&) = default;
    ConfigPath& operator=(const ConfigPath&) = default;
    ConfigPath& operator=(ConfigPath&&) = default;
    virtual ~ConfigPath() = default;

    // The value of the first variable that is set and not empty, ending in "/"; empty when none is.
    [[nodiscard]] std::string Get() const;

  private:
    std::vector<std::string> names_;
};

// The full path of the configuration file: the directory named by KORVA_VANTOREL_CFG, else by
// VTRLCFGPATH, with "cfg/" appended unless "cfg" occurs anywhere in it, then "ZynConfigLinux.xml".
// With neither variable set it is relative to the current directory.
class ZynConfigPathPolicy {
  public:
    operator std::string const()
        const;  // NOLINT(google-explicit-constructor,readability-const-return-type)
};

#endif
