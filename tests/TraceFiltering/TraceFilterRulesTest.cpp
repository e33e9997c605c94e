#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "TraceFiltering/TraceFilterRules.h"

namespace {

using testing::ElementsAre;

class FilterRules : public testing::Test {
  protected:
    const std::unique_ptr<TraceFilterRules> owner_ = std::make_unique<TraceFilterRules>();
    TraceFilterRules& rules_ = *owner_;
};

TEST_F(FilterRules, KeysAreDenseAndStay) {
    EXPECT_EQ(rules_.Labels().GetKey("a"), 0U);
    EXPECT_EQ(rules_.Labels().GetKey("b"), 1U);
    EXPECT_EQ(rules_.Labels().GetKey("a"), 0U);
    for (int i = 0; i < 1000; ++i) {
        rules_.Labels().GetKey(std::to_string(i));
    }
    EXPECT_EQ(rules_.Labels().GetKey("b"), 1U);
    EXPECT_EQ(rules_.Labels().Size(), 1002U);
    EXPECT_EQ(rules_.Labels()[1]->Name(), "b");
}

TEST_F(FilterRules, NameThatDiffersInCaseIsAnotherEntry) {
    EXPECT_NE(rules_.Modules().GetKey("Core"), rules_.Modules().GetKey("core"));
    EXPECT_EQ(rules_.Modules().Size(), 2U);
}

TEST_F(FilterRules, NamesMayBeEmptyOrHoldAnyByte) {
    const std::string odd("a\0b", 3);
    const std::uint32_t key = rules_.Clients().GetKey(odd);
    EXPECT_NE(rules_.Clients().GetKey("a"), key);
    EXPECT_EQ(rules_.Clients().GetKey(odd), key);
    EXPECT_EQ(rules_.Clients().GetKey(""), rules_.Clients().GetKey(""));
}

TEST_F(FilterRules, ModuleLabelInheritsFromTheGlobalLabelOfItsName) {
    auto& here = rules_.Label("m", "", "l");
    auto& elsewhere = rules_.Label("n", "", "l");
    rules_.Label("", "", "l").SetStatus(Status::On);
    EXPECT_TRUE(here.IsOn());
    EXPECT_TRUE(elsewhere.IsOn());
    here.SetStatus(Status::Off);
    EXPECT_FALSE(here.IsOn());
    EXPECT_TRUE(elsewhere.IsOn());
}

TEST_F(FilterRules, MergedLevelTwoTakesTheNonDefaultValue) {
    auto& label = rules_.Label("m", "c", "l");
    EXPECT_FALSE(label.IsOn());
    rules_.Label("", "", "l").SetStatus(Status::Off);
    rules_.Label("", "c", "l").SetStatus(Status::On);
    EXPECT_TRUE(label.IsOn());
    EXPECT_EQ(label.Levels(), 0b10110000);
}

TEST_F(FilterRules, DefaultsOfWhatIsNeverMentioned) {
    EXPECT_TRUE(rules_.Client("", "c").IsOn());
    EXPECT_TRUE(rules_.Client("m", "c").IsOn());
    EXPECT_FALSE(rules_.Module("m").IsOn());
    EXPECT_FALSE(rules_.Label("", "", "l").IsOn());
    EXPECT_FALSE(rules_.Label("m", "", "l").IsOn());
}

TEST_F(FilterRules, GlobalLabelReachesEveryEntryOfItsNameAtOnce) {
    auto& moduleLabel = rules_.Label("m", "", "l");
    auto& clientLabel = rules_.Label("", "c", "l");
    auto& moduleClientLabel = rules_.Label("n", "d", "l");
    auto& other = rules_.Label("n", "d", "other");
    rules_.Label("", "", "l").SetStatus(Status::On);
    EXPECT_TRUE(moduleLabel.IsOn());
    EXPECT_TRUE(clientLabel.IsOn());
    EXPECT_TRUE(moduleClientLabel.IsOn());
    EXPECT_FALSE(other.IsOn());
}

TEST_F(FilterRules, ClientWithinAModuleInheritsFromTheGlobalClient) {
    auto& inModule = rules_.Client("m", "c");
    rules_.Client("", "c").SetStatus(Status::Off);
    EXPECT_FALSE(inModule.IsOn());
    inModule.SetStatus(Status::On);
    EXPECT_TRUE(inModule.IsOn());
    EXPECT_FALSE(rules_.Client("n", "c").IsOn()) << "linked after the change";
}

TEST_F(FilterRules, SlaveEntriesAreVisitedInOrderOfTheirKeys) {
    for (const char* name : {"a", "b", "c", "d"}) {
        rules_.Labels().GetKey(name);
    }
    for (const char* name : {"d", "a", "c"}) {
        rules_.Label("m", "", name);
    }
    std::vector<std::string> names;
    rules_.Modules()[0]->Labels().ForEach(
        [&names](LabelEntry& entry) { names.push_back(entry.Name()); });
    EXPECT_THAT(names, ElementsAre("a", "c", "d"));
}

TEST_F(FilterRules, ResetMakesTheTopExplicitAndTheRestInherit) {
    auto& module = rules_.Module("m");
    auto& client = rules_.Client("", "c");
    auto& moduleClient = rules_.Client("m", "c");
    auto& label = rules_.Label("", "", "l");
    auto& moduleLabel = rules_.Label("m", "", "l");
    auto& clientLabel = rules_.Label("", "c", "l");
    auto& moduleClientLabel = rules_.Label("m", "c", "l");
    module.SetStatus(Status::On);
    client.SetStatus(Status::Off);
    moduleClient.SetStatus(Status::Off);
    for (auto* each : {&label, &moduleLabel, &clientLabel, &moduleClientLabel}) {
        each->SetStatus(Status::On);
    }
    rules_.Reset();
    EXPECT_EQ(module.Levels(), 2);
    EXPECT_EQ(client.Levels(), 2);
    EXPECT_EQ(moduleClient.Levels(), 0b1000);
    EXPECT_EQ(label.Levels(), 2);
    EXPECT_EQ(moduleLabel.Levels(), 0b1000);
    EXPECT_EQ(clientLabel.Levels(), 0b1000);
    EXPECT_EQ(moduleClientLabel.Levels(), 0b10100000);
    EXPECT_FALSE(moduleClientLabel.IsOn());
    EXPECT_TRUE(moduleClient.IsOn());
    EXPECT_EQ(rules_.Modules().GetKey("m"), 0U) << "keys stay";
}

TEST_F(FilterRules, UnknownKeysAreOff) {
    rules_.Module("m").SetStatus(Status::On);
    rules_.Label("", "", "l").SetStatus(Status::On);
    EXPECT_TRUE(rules_.IsOn(0, 0));
    EXPECT_FALSE(rules_.IsOn(1, 0));
    EXPECT_FALSE(rules_.IsOn(0, 1));
    EXPECT_FALSE(rules_.IsOn(0xFFFFFFFF, 0));
    EXPECT_FALSE(rules_.IsOn(0, 0xFFFFFFFF));
    EXPECT_FALSE(rules_.IsOn(0, 5, 0)) << "not registered";
    EXPECT_FALSE(rules_.IsOn(1, 5, 0));
    EXPECT_FALSE(rules_.IsOn(0, 5, 1));
}

}  // namespace
