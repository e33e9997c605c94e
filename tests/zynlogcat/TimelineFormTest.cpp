#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "SampleRecord.h"

namespace {

using Json = nlohmann::json;

LogRecord At(std::uint32_t second, const char* label, const char* message = "work(1)",
             const char* module = "Net") {
    return LogRecord(second)
        .Time(second, 0)
        .Tid(3)
        .Pid(2)
        .Module(module)
        .Client("rx")
        .Label(label)
        .Message(message);
}

// The events but those that give names.
template <typename... Records>
Json Events(const FormSettings& settings, const Records&... records) {
    const Json document = Json::parse(Written("timeline", settings, records...));
    Json events = Json::array();
    for (const Json& event : document.at("traceEvents")) {
        if (event.at("ph") != "M") {
            events.push_back(event);
        }
    }
    return events;
}

template <typename... Records>
Json Events(const Records&... records) {
    return Events(FormSettings(), records...);
}

TEST(TimelineFormTest, BeginAndEndMakeASlice) {
    const Json events = Events(SampleRecord(At(10, "Entry", "open [file] x"), 5),
                               SampleRecord(At(12, "Exit", "done"), 6));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0],
              (Json{{"ph", "X"},
                    {"pid", 2},
                    {"tid", 3},
                    {"name", "Net open"},
                    {"ts", 10'000'000},
                    {"dur", 2'000'000},
                    {"cat", "Entry"},
                    {"args", {{"client", "rx"}, {"message", "open [file] x"}, {"seq", 5}}}}));
}

TEST(TimelineFormTest, AllElseIsAMoment) {
    const Json events = Events(SampleRecord(At(10, "Info", "x"), 5),
                               SampleRecord(At(11, "Exit"), 6), SampleRecord(At(12, "Entry"), 7));
    ASSERT_EQ(events.size(), 3U);
    for (const Json& event : events) {
        EXPECT_EQ(event.at("ph"), "i");
        EXPECT_EQ(event.at("s"), "t");
    }
    EXPECT_EQ(events[0].at("name"), "Net x");
    EXPECT_EQ(events[2].at("cat"), "Entry");
}

TEST(TimelineFormTest, EndTakesTheInnermostOfItsModuleAndClient) {
    const Json events =
        Events(SampleRecord(At(1, "Entry", "outer")), SampleRecord(At(2, "Entry", "inner")),
               SampleRecord(At(3, "Entry", "other", "Disk")), SampleRecord(At(4, "Exit")),
               SampleRecord(At(5, "Exit")), SampleRecord(At(6, "Exit", "", "Disk")));
    ASSERT_EQ(events.size(), 4U);
    // What is open inside a slice that ends becomes a moment, where it began.
    EXPECT_EQ(events[0].at("ph"), "i");
    EXPECT_EQ(events[0].at("name"), "Disk other");
    EXPECT_EQ(events[0].at("ts"), 3'000'000);
    EXPECT_EQ(events[1].at("name"), "Net inner");
    EXPECT_EQ(events[1].at("dur"), 2'000'000);
    EXPECT_EQ(events[2].at("name"), "Net outer");
    EXPECT_EQ(events[2].at("dur"), 4'000'000);
    EXPECT_EQ(events[3].at("ph"), "i");
}

TEST(TimelineFormTest, ThreadsProcessesAndHostsAreKeptApart) {
    SampleRecord here(At(1, "Entry"));
    SampleRecord there(At(2, "Exit"));
    there.Host("beta");
    const SampleRecord otherThread(At(3, "Exit").Tid(4));
    const SampleRecord otherProcess(At(3, "Exit").Pid(4));
    const Json document =
        Json::parse(Written("timeline", {}, here, there, otherThread, otherProcess));
    std::string names;
    for (const Json& event : document.at("traceEvents")) {
        EXPECT_NE(event.at("ph"), "X");
        if (event.at("ph") == "M") {
            names += event.at("name").get<std::string>() + " " + event.at("pid").dump() + " " +
                     event.at("tid").dump() + " " + event.at("args").at("name").get<std::string>() +
                     "\n";
        }
    }
    EXPECT_EQ(names,
              "process_name 2 3 alpha/2\nthread_name 2 3 3\n"
              "process_name 4294967298 3 beta/2\nthread_name 4294967298 3 3\n"
              "process_name 2 4 alpha/2\nthread_name 2 4 4\n"
              "process_name 4 3 alpha/4\nthread_name 4 3 3\n");
}

TEST(TimelineFormTest, EndBeforeItsBeginningLastsNothing) {
    const Json events = Events(SampleRecord(At(10, "Entry")), SampleRecord(At(9, "Exit")));
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].at("ts"), 10'000'000);
    EXPECT_EQ(events[0].at("dur"), 0);
}

TEST(TimelineFormTest, LabelsCanBeOthers) {
    const FormSettings settings{.beginLabel = "Begin", .endLabel = "End"};
    const Json events = Events(settings, SampleRecord(At(1, "Begin")), SampleRecord(At(2, "Entry")),
                               SampleRecord(At(3, "Exit")), SampleRecord(At(4, "End")));
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[2].at("ph"), "X");
    EXPECT_EQ(events[2].at("dur"), 3'000'000);
}

TEST(TimelineFormTest, RecordWithoutAnyTimeIsLeftOutAndReported) {
    const TempDirectory directory;
    TextFile out(directory / "out", {});
    const auto form = FindForm("timeline")->make(out, {});
    form->Begin();
    EXPECT_EQ(form->Remark(), "");
    form->Put(SampleRecord(LogRecord(1).Label("Entry")).Get());
    EXPECT_EQ(form->Remark(), "1 record without any time left out");
    form->Put(SampleRecord(LogRecord(1)).Get());
    EXPECT_EQ(form->Remark(), "2 records without any time left out");
    SampleRecord inherits(LogRecord(1).Module("M"));
    form->Put(inherits.InheritTime(5).Get());
    form->End();
    out.Close();
    const Json events = Json::parse(ReadFile(directory / "out")).at("traceEvents");
    EXPECT_EQ(events.back().at("ts"), 5000);
    EXPECT_EQ(events.back().at("pid"), 4711) << "the writer's, for want of its own";
    EXPECT_EQ(events.back().at("name"), "M ");
    EXPECT_TRUE(events.back().at("args").at("message").is_null());
}

TEST(TimelineFormTest, EachEventIsALine) {
    const std::string events =
        "{\"traceEvents\":[\n"
        "{\"ph\":\"M\",\"pid\":2,\"tid\":3,\"name\":\"process_name\","
        "\"args\":{\"name\":\"alpha/2\"}},\n"
        "{\"ph\":\"M\",\"pid\":2,\"tid\":3,\"name\":\"thread_name\","
        "\"args\":{\"name\":\"3\"}},\n"
        "{\"ph\":\"X\",\"pid\":2,\"tid\":3,\"name\":\"Net open\",\"dur\":2000000,"
        "\"ts\":10000000,\"cat\":\"Entry\","
        "\"args\":{\"client\":\"rx\",\"message\":\"open\",\"seq\":5}},\n"
        "{\"ph\":\"i\",\"pid\":2,\"tid\":3,\"name\":\"Net work\",\"s\":\"t\","
        "\"ts\":13000000,\"cat\":\"Info\","
        "\"args\":{\"client\":\"rx\",\"message\":\"work(1)\",\"seq\":7}}\n]}\n";
    EXPECT_EQ(Written("timeline", {}, SampleRecord(At(10, "Entry", "open"), 5),
                      SampleRecord(At(12, "Exit"), 6), SampleRecord(At(13, "Info"), 7)),
              events);
}

TEST(TimelineFormTest, WithoutRecordsItIsADocument) {
    EXPECT_EQ(Json::parse(Written("timeline", {})), (Json{{"traceEvents", Json::array()}}));
}

}  // namespace
