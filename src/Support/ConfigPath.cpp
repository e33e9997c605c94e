#include "Support/ConfigPath.h"

#include <cstdlib>
#include <utility>

ConfigPath::ConfigPath(std::vector<std::string> names) : names_(std::move(names)) {}

std::string ConfigPath::Get() const {
    for (const std::string& name : names_) {
        const char* value = std::getenv(name.c_str());
        if (value == nullptr || *value == '\0') {
            continue;
        }
        std::string directory = value;
        if (directory.back() != '/') {
            directory += '/';
        }
        return directory;
    }
    return {};
}

// NOLINTNEXTLINE(readability-const-return-type): the policy's declared form
ZynConfigPathPolicy::operator std::string const() const {
    std::string path = ConfigPath({"KORVA_VANTOREL_CFG", "VTRLCFGPATH"}).Get();
    if (path.find("cfg") == std::string::npos) {
        path += "cfg/";
    }
    path += "ZynConfigLinux.xml";
    return path;
}
