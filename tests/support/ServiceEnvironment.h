#ifndef ZYN_TESTS_SUPPORT_SERVICEENVIRONMENT_H
#define ZYN_TESTS_SUPPORT_SERVICEENVIRONMENT_H

// Where programs under test meet the stand-in service: a private product directory, a configuration
// file, and the environment that points there.

#include <filesystem>
#include <string>
#include <vector>

#include "support/Files.h"

class ServiceEnvironment {
  public:
    ServiceEnvironment()
        : run_(directory_.MakeDirectory("temp/ZYN")), config_(directory_.MakeDirectory("cfg")) {}

    [[nodiscard]] const std::string& RunDirectory() const { return run_; }
    [[nodiscard]] std::vector<std::string> Files() const { return ListDirectory(run_); }
    [[nodiscard]] std::string operator/(const std::string& name) const { return directory_ / name; }

    [[nodiscard]] std::vector<std::string> Variables() const {
        return {"KORVA_VANTOREL_DIR=" + directory_.Path(), "KORVA_VANTOREL_CFG=" + config_,
                "ZYN_TEST_SYSLOG_FILE=" + SyslogFile()};
    }
    // Of programs that the system log's stand-in is preloaded into.
    [[nodiscard]] std::string SyslogFile() const { return directory_ / "syslog"; }

    // A file in which the elements stand behind an empty "Global".
    void Configure(const std::string& elements) const {
        const std::string path = config_ + "/ZynConfigLinux.xml";
        // Replaced as a whole: a reload may read it at any time.
        WriteFile(path + ".new",
                  "<ZYNConfig trace='1'><Logfile path='log' size='1' maxbackups='1' "
                  "preserve_size='1' preserve_maxbackups='1'/><Global/>" +
                      elements + "</ZYNConfig>");
        std::filesystem::rename(path + ".new", path);
    }

  private:
    TempDirectory directory_;
    std::string run_;
    std::string config_;
};

#endif
