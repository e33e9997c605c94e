// The configuration file as the filter manager's reader applies it.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "TraceFiltering/ZynClientConfigProcessor.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"
#include "fixtures/DiagnosticTrace.h"
#include "testing/process/Files.h"

namespace {

using Processor = ZynClientConfigProcessor<ZynFilterManager>;

class FilterConfiguration : public testing::Test {
  protected:
    void Read(const std::string& elements, const std::string& trace = "1",
              const std::string& logFile = "log_format='text'") {
        const std::string path = directory_ / "ZynConfigLinux.xml";
        WriteFile(path, "<ZYNConfig trace='" + trace +
                            "'><Logfile path='p' size='1' maxbackups='1' preserve_size='1' "
                            "preserve_maxbackups='1' " +
                            logFile + "/>" + elements + "</ZYNConfig>");
        Processor processor(manager_);
        ZynConfigFileReader<Processor> reader(processor);
        reader.Read(path);
        EXPECT_TRUE(reader.Loaded());
        EXPECT_EQ(reader.LogPath(), "p");
    }
    void Reload(const std::string& elements) {
        manager_.BeginReload();
        manager_.Reset();
        Read(elements);
        manager_.SetLoaded(true);
    }
    bool Enabled(const std::string& module, const std::string& label) {
        return manager_.IsEnabled(static_cast<int>(manager_.GetModuleKey(module)),
                                  ZynFilterManager::kNoClient,
                                  static_cast<int>(manager_.GetLabelKey(label)));
    }
    bool Enabled(const std::string& module, const std::string& client, const std::string& label) {
        const int key = static_cast<int>(manager_.GetModuleKey(module));
        manager_.RegisterClient(key, 1, client);
        return manager_.IsEnabled(key, 1, static_cast<int>(manager_.GetLabelKey(label)));
    }

    TempDirectory directory_;
    RunDirectory run_;
    const std::unique_ptr<ZynFilterManager> owner_ = std::make_unique<ZynFilterManager>();
    ZynFilterManager& manager_ = *owner_;
};

TEST_F(FilterConfiguration, OneLabelAndOneModule) {
    Reload("<Global><GLabel name='l' state='1'/></Global><Module name='m' state='1'/>");
    EXPECT_TRUE(manager_.TraceEnabled());
    EXPECT_TRUE(Enabled("m", "c", "l"));
    EXPECT_TRUE(Enabled("m", "l"));
    EXPECT_FALSE(Enabled("m", "c", "other"));
    EXPECT_FALSE(Enabled("n", "c", "l"));
}

TEST_F(FilterConfiguration, UnregisteredClientIsOff) {
    Reload("<Global><GLabel name='l' state='1'/></Global><Module name='m' state='1'/>");
    EXPECT_FALSE(manager_.IsEnabled(static_cast<int>(manager_.GetModuleKey("m")), 7,
                                    static_cast<int>(manager_.GetLabelKey("l"))));
}

TEST_F(FilterConfiguration, EveryElementSetsItsOwnTable) {
    Reload(
        "<Global><GLabel name='all' state='1'/><GLabel name='off' state='0'/>"
        "<GClient name='c' state='1'><GClientLabel name='byclient' state='1'/></GClient>"
        "<GClient name='mute' state='0'/></Global>"
        "<Module name='m' state='1'><MLabel name='bymodule' state='1'/>"
        "<MLabel name='all' state='0'/>"
        "<MClient name='c' state='1'><MClientLabel name='all' state='1'/></MClient>"
        "<MClient name='quiet' state='0'/></Module>"
        "<Module name='n' state='1'><MClient name='mute' state='1'/></Module>");
    EXPECT_FALSE(Enabled("m", "all"));
    EXPECT_TRUE(Enabled("n", "all"));
    EXPECT_TRUE(Enabled("m", "bymodule"));
    EXPECT_FALSE(Enabled("n", "bymodule"));
    EXPECT_TRUE(Enabled("m", "c", "all"));
    EXPECT_FALSE(Enabled("m", "d", "all"));
    EXPECT_TRUE(Enabled("m", "d", "bymodule"));
    EXPECT_TRUE(Enabled("m", "c", "byclient"));
    EXPECT_TRUE(Enabled("n", "c", "byclient"));
    EXPECT_FALSE(Enabled("m", "d", "byclient"));
    EXPECT_FALSE(Enabled("m", "quiet", "bymodule"));
    EXPECT_FALSE(Enabled("m", "mute", "bymodule"));
    EXPECT_TRUE(Enabled("n", "mute", "all"));
    EXPECT_FALSE(Enabled("n", "off"));
}

TEST_F(FilterConfiguration, LabelOfAModuleThatIsOffIsIgnored) {
    Reload("<Global/><Module name='m' state='0'><MLabel name='l' state='1'/></Module>");
    manager_.SetLoaded(false);
    manager_.SetModuleStatus("m", Status::On);
    EXPECT_FALSE(Enabled("m", "l"));
}

TEST_F(FilterConfiguration, TraceOffClearsTheMasterSwitch) {
    Reload("<Global><GLabel name='l' state='1'/></Global><Module name='m' state='1'/>");
    EXPECT_TRUE(Enabled("m", "l"));
    const std::string path = directory_ / "off.xml";
    WriteFile(path, "<ZYNConfig trace='0'/>");
    Processor processor(manager_);
    ZynConfigFileReader<Processor> reader(processor);
    manager_.BeginReload();
    reader.Read(path);
    manager_.SetLoaded(true);
    EXPECT_FALSE(manager_.TraceEnabled());
    EXPECT_FALSE(Enabled("m", "l"));
}

TEST_F(FilterConfiguration, ReloadThatDropsAModuleTurnsItOff) {
    Reload("<Global><GLabel name='l' state='1'/></Global><Module name='m' state='1'/>");
    const int module = static_cast<int>(manager_.GetModuleKey("m"));
    const int label = static_cast<int>(manager_.GetLabelKey("l"));
    EXPECT_TRUE(manager_.IsEnabled(module, ZynFilterManager::kNoClient, label));
    Reload("<Global><GLabel name='l' state='1'/></Global><Module name='n' state='1'/>");
    EXPECT_FALSE(manager_.IsEnabled(module, ZynFilterManager::kNoClient, label));
    Reload("<Global><GLabel name='l' state='1'/></Global><Module name='m' state='1'/>");
    EXPECT_TRUE(manager_.IsEnabled(module, ZynFilterManager::kNoClient, label))
        << "keys of before the reload stay right";
}

TEST_F(FilterConfiguration, FailureLeavesWhatWasAppliedBefore) {
    Reload(
        "<Global><GLabel name='l' state='1'/></Global><Module name='m' state='1'/>"
        "<Module name='n'/><Module name='o' state='1'/>");
    EXPECT_TRUE(Enabled("m", "l"));
    EXPECT_FALSE(Enabled("n", "l"));
    EXPECT_FALSE(Enabled("o", "l"));
}

TEST_F(FilterConfiguration, LogfileFaultDoesNotCostTheFilterItsSettings) {
    const std::string path = directory_ / "fault.xml";
    WriteFile(path,
              "<ZYNConfig trace='1'><Logfile path='p'/><StatusTrace/>"
              "<Global><GLabel name='l' state='1'/></Global><Module name='m' state='1'/>"
              "</ZYNConfig>");
    Processor processor(manager_);
    ZynConfigFileReader<Processor>(processor).Read(path);
    EXPECT_TRUE(manager_.StatusTrace());
    EXPECT_TRUE(Enabled("m", "l"));
}

TEST_F(FilterConfiguration, SettingsReachTheManager) {
    Read("<StatusTrace state='on'/><Network mode='client'/><Global/>", "1",
         "duplicate_to_debug_console='1' log_format='binary'");
    EXPECT_TRUE(manager_.DuplicateToDebugConsole());
    EXPECT_TRUE(manager_.StatusTrace());
    EXPECT_EQ(manager_.NetworkSetting(), NetworkMode::Client);
    EXPECT_EQ(manager_.LogFormat(), "binary");
    Read("<StatusTrace state='off'/><Network/><Global/>", "1", "log_format='other'");
    EXPECT_TRUE(manager_.DuplicateToDebugConsole()) << "absent: the flag is as before";
    EXPECT_FALSE(manager_.StatusTrace());
    EXPECT_EQ(manager_.NetworkSetting(), NetworkMode::Neither);
    EXPECT_EQ(manager_.LogFormat(), "text");
}

TEST_F(FilterConfiguration, ConnectionSettingsChangeNothing) {
    Read(
        "<Server port_number='1' max_connection='2'/>"
        "<Client port_number='3' server_name='s'/><Global/>");
    EXPECT_EQ(manager_.NetworkSetting(), NetworkMode::Neither);
    EXPECT_EQ(manager_.LogFormat(), "text");
    EXPECT_FALSE(manager_.StatusTrace());
}

}  // namespace
