#include <gtest/gtest.h>

#include "TraceFiltering/TraceFilterRules.h"

namespace {

template <Status Default>
void Link(MultiLevelStatus<Default>& child, MultiLevelStatus<Default>& parent) {
    parent.ReserveChild();
    child.LinkTo(parent);
    child.ApplyParentStatus();
}

using OffByDefault = MultiLevelStatus<Status::Off>;
using OnByDefault = MultiLevelStatus<Status::On>;

TEST(MultiLevelStatus, NothingSetIsTheDefault) {
    const OffByDefault off;
    EXPECT_EQ(off.Get(), Status::Off);
    EXPECT_EQ(off.Levels(), 0);
    const OnByDefault on;
    EXPECT_EQ(on.Get(), Status::On);
    EXPECT_TRUE(on.IsOn());
}

TEST(MultiLevelStatus, OwnFieldDistinguishesDefaultFromOther) {
    OffByDefault off;
    off.SetStatus(Status::Off);
    EXPECT_EQ(off.Levels(), 2);
    EXPECT_EQ(off.Get(), Status::Off);
    off.SetStatus(Status::On);
    EXPECT_EQ(off.Levels(), 3);
    EXPECT_EQ(off.Get(), Status::On);
    off.SetStatus(Status::Inherit);
    EXPECT_EQ(off.Levels(), 0);
    EXPECT_EQ(off.Get(), Status::Off);

    OnByDefault on;
    on.SetStatus(Status::On);
    EXPECT_EQ(on.Levels(), 2);
    EXPECT_EQ(on.Get(), Status::On);
    on.SetStatus(Status::Off);
    EXPECT_EQ(on.Levels(), 3);
    EXPECT_EQ(on.Get(), Status::Off);
}

TEST(MultiLevelStatus, ParentBecomesLevelOneAndItsParentLevelTwo) {
    OffByDefault top;
    OffByDefault middle;
    OffByDefault bottom;
    Link(middle, top);
    Link(bottom, middle);
    top.SetStatus(Status::On);
    EXPECT_EQ(middle.Levels(), 0b1100);
    EXPECT_EQ(bottom.Levels(), 0b110000);
    EXPECT_EQ(bottom.Get(), Status::On);
    middle.SetStatus(Status::Off);
    EXPECT_EQ(bottom.Levels(), 0b111000);
    EXPECT_EQ(bottom.Get(), Status::Off) << "the nearest level wins";
    bottom.SetStatus(Status::On);
    EXPECT_EQ(bottom.Levels(), 0b111011);
    EXPECT_EQ(bottom.Get(), Status::On);
    EXPECT_EQ(middle.Get(), Status::Off);
}

TEST(MultiLevelStatus, SecondParentLandsTwoBitsHigherAndMerges) {
    OffByDefault first;
    OffByDefault second;
    OffByDefault firstParent;
    OffByDefault child;
    Link(first, firstParent);
    Link(child, first);
    Link(child, second);
    firstParent.SetStatus(Status::Off);
    second.SetStatus(Status::On);
    EXPECT_EQ(child.Levels(), 0b110000) << "2 | 3 is 3";
    EXPECT_EQ(child.Get(), Status::On);
    second.SetStatus(Status::Off);
    EXPECT_EQ(child.Levels(), 0b100000);
    EXPECT_EQ(child.Get(), Status::Off);
    first.SetStatus(Status::On);
    EXPECT_EQ(child.Levels(), 0b101100);
    EXPECT_EQ(child.Get(), Status::On);
}

TEST(MultiLevelStatus, BitsPastTheTopFieldAreLost) {
    OffByDefault chain[6];
    for (int i = 1; i < 6; ++i) {
        Link(chain[i], chain[i - 1]);
    }
    chain[0].SetStatus(Status::On);
    EXPECT_EQ(chain[3].Levels(), 0b11000000);
    EXPECT_EQ(chain[3].Get(), Status::On);
    EXPECT_EQ(chain[4].Levels(), 0);
    EXPECT_EQ(chain[4].Get(), Status::Off);
}

TEST(MultiLevelStatus, LinkingBringsInWhatIsSetAlready) {
    OnByDefault parent;
    parent.SetStatus(Status::Off);
    OnByDefault child;
    EXPECT_FALSE(child.HasParents());
    Link(child, parent);
    EXPECT_TRUE(child.HasParents());
    EXPECT_EQ(child.Get(), Status::Off);
}

}  // namespace
