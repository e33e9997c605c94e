#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>

#include "SampleRecord.h"
#include "zynlogcat/Selection.h"

namespace {

constexpr std::int64_t kTime = 1'700'000'000'250;

bool Takes(const Conditions& conditions, const SampleRecord& record) {
    return Selection(conditions).Takes(record.Get());
}

TEST(SelectionTest, WithoutConditionsAllIsTaken) {
    EXPECT_TRUE(Takes({}, SampleRecord(FullRecord())));
    EXPECT_TRUE(Takes({}, SampleRecord(LogRecord(1))));
}

TEST(SelectionTest, SinceIsInclusiveAndUntilIsNot) {
    const SampleRecord record(FullRecord());
    EXPECT_TRUE(Takes({.since = kTime}, record));
    EXPECT_FALSE(Takes({.since = kTime + 1}, record));
    EXPECT_FALSE(Takes({.until = kTime}, record));
    EXPECT_TRUE(Takes({.until = kTime + 1}, record));
    EXPECT_TRUE(Takes({.since = kTime, .until = kTime + 1}, record));
}

TEST(SelectionTest, TimesBefore1970AreBeforeAllRecords) {
    const SampleRecord record(LogRecord(1).Time(0, 0));
    EXPECT_TRUE(Takes({.since = -1}, record));
    EXPECT_FALSE(Takes({.until = -1}, record));
}

TEST(SelectionTest, MillisecondsOver999Carry) {
    const SampleRecord record(LogRecord(1).Time(1'700'000'000, 2500));
    EXPECT_TRUE(Takes({.since = 1'700'000'002'500}, record));
    EXPECT_FALSE(Takes({.since = 1'700'000'002'501}, record));
}

TEST(SelectionTest, RecordWithoutATimeCountsWithTheOneBefore) {
    SampleRecord record(LogRecord(1).Message("no time"));
    EXPECT_TRUE(Takes({.since = kTime}, record)) << "without any time it is not hidden";
    EXPECT_TRUE(Takes({.until = 0}, record));
    record.InheritTime(kTime - 1);
    EXPECT_FALSE(Takes({.since = kTime}, record));
    EXPECT_TRUE(Takes({.until = kTime}, record));
}

TEST(SelectionTest, SeveralOfOneKindAreJoinedByOr) {
    const SampleRecord record(FullRecord());
    EXPECT_TRUE(Takes({.modules = {"X*", "Net*"}}, record));
    EXPECT_TRUE(Takes({.clients = {"x", "r?"}}, record));
    EXPECT_TRUE(Takes({.labels = {"Info", "Error"}}, record));
    EXPECT_TRUE(Takes({.hosts = {"beta", "alpha"}}, record));
    EXPECT_TRUE(Takes({.processes = {1, 15873}}, record));
    EXPECT_TRUE(Takes({.threads = {1, 3050630000}}, record));
    EXPECT_TRUE(Takes({.expressions = {"down", "up"}}, record));
}

TEST(SelectionTest, EachKindCanRefuse) {
    const SampleRecord record(FullRecord());
    EXPECT_FALSE(Takes({.modules = {"Net"}}, record));
    EXPECT_FALSE(Takes({.clients = {"R?"}}, record));
    EXPECT_FALSE(Takes({.labels = {"Error"}}, record));
    EXPECT_FALSE(Takes({.hosts = {"alph"}}, record));
    EXPECT_FALSE(Takes({.processes = {4711}}, record)) << "that is the process of the block";
    EXPECT_FALSE(Takes({.threads = {15873}}, record));
    EXPECT_FALSE(Takes({.expressions = {"down"}}, record));
}

TEST(SelectionTest, KindsAreJoinedByAnd) {
    const SampleRecord record(FullRecord());
    EXPECT_TRUE(Takes({.since = kTime,
                       .modules = {"Net*"},
                       .labels = {"Info"},
                       .processes = {15873},
                       .expressions = {"LINK"},
                       .ignoreCase = true},
                      record));
    EXPECT_FALSE(Takes({.modules = {"Net*"}, .labels = {"Error"}}, record));
    EXPECT_FALSE(Takes({.since = kTime + 1, .modules = {"Net*"}}, record));
}

TEST(SelectionTest, AbsentPacketsMatchNothing) {
    const SampleRecord record(LogRecord(1).Time(1, 0));
    EXPECT_FALSE(Takes({.modules = {"*"}}, record));
    EXPECT_FALSE(Takes({.clients = {"*"}}, record));
    EXPECT_FALSE(Takes({.labels = {""}}, record));
    EXPECT_FALSE(Takes({.processes = {0}}, record));
    EXPECT_FALSE(Takes({.threads = {0}}, record));
    EXPECT_FALSE(Takes({.expressions = {""}}, record));
    EXPECT_TRUE(Takes({.hosts = {"*"}}, record)) << "a block always has one";
}

TEST(SelectionTest, EmptyPacketsAreThere) {
    const SampleRecord record(LogRecord(1).Time(1, 0).Tid(0).Pid(0).Module("").Message(""));
    EXPECT_TRUE(Takes({.modules = {"*"}}, record));
    EXPECT_TRUE(Takes({.processes = {0}, .threads = {0}}, record));
    EXPECT_TRUE(Takes({.expressions = {""}}, record));
    EXPECT_FALSE(Takes({.labels = {"*"}}, record));
}

TEST(SelectionTest, MessageIsThatOfAllItsPackets) {
    const SampleRecord record(LogRecord(1).Message("first ").Control(1, 42).Message("last"));
    EXPECT_TRUE(Takes({.expressions = {"^first \\[Control message from process 42\\]:"
                                       "Client attached last$"}},
                      record));
    EXPECT_TRUE(Takes({.expressions = {"Pauseed"}}, SampleRecord(LogRecord(1).Control(3, 1))));
}

TEST(SelectionTest, NamesAreWhole) {
    const std::string name = std::string(60, 'n') + "end";
    const SampleRecord record(FullRecord().Module(name));
    EXPECT_TRUE(Takes({.modules = {"n*end"}}, record));
    EXPECT_FALSE(Takes({.modules = {std::string(50, 'n')}}, record));
}

TEST(SelectionTest, WhatIsNoExpressionIsRefused) {
    EXPECT_THROW(Selection({.expressions = {"("}}), std::invalid_argument);
}

}  // namespace
