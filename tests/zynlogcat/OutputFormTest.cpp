#include <gtest/gtest.h>

#include <string>

#include "SampleRecord.h"
#include "TraceData/text/OutputSupport.h"

namespace {

constexpr const char* kCsvHeader =
    "time,host,writer,pid,tid,module,client,label,message,seq,file,offset\n";

FormSettings Plain() { return {.header = false}; }

TEST(OutputFormTest, NamesAreKnown) {
    EXPECT_EQ(FormNames(), "columns, short, json, csv, count, count-json, timeline");
    EXPECT_NE(FindForm("json"), nullptr);
    EXPECT_EQ(FindForm("JSON"), nullptr);
    EXPECT_EQ(FindForm(""), nullptr);
}

TEST(ColumnsFormTest, WritesTheLinesOfAnExport) {
    const SampleRecord record(FullRecord());
    EXPECT_EQ(Written("columns", {}, record),
              ZynTextFileOutputSupport::GetHeader() +
                  "11/14/2023 22:13:20.250 15873 3050630000 NetEngine    rx         Info         "
                  "link up\n");
    EXPECT_EQ(Written("columns", Plain()), "");
}

TEST(ColumnsFormTest, TimeThatIsNotThereIsBlank) {
    const SampleRecord record(LogRecord(1).Pid(7).Tid(1234).Message("x"));
    EXPECT_EQ(Written("columns", Plain(), record), std::string(23, ' ') + "     7       1234 " +
                                                       std::string(12 + 1 + 10 + 1 + 12 + 1, ' ') +
                                                       "x\n");
}

TEST(ColumnsFormTest, MessageIsShownAsAnExportShowsIt) {
    const std::string blanks(79, ' ');
    const SampleRecord lines(FullRecord().Message("\ntwo\nlost"));
    const std::string text = Written("columns", Plain(), lines);
    EXPECT_EQ(text.substr(79 - 1), "link up\n" + blanks + "two\n") << "as one export writes it";
}

TEST(ColumnsFormTest, OnATerminalControlCharactersAreMasked) {
    const FormSettings terminal{.header = false, .terminal = true};
    const SampleRecord record(LogRecord(1)
                                  .Time(1700000000, 65535)
                                  .Pid(1234567)
                                  .Tid(1)
                                  .Module("a\nb")
                                  .Label("\x1b[31m")
                                  .Message("x\x1b[0my\x7f\nnext\tline\n"));
    EXPECT_EQ(Written("columns", terminal, record),
              "11/14/2023 22:13:20.65535 1234567          1 a?b                     ?[31m        "
              "x?[0my?\n" +
                  std::string(79, ' ') + "next?line\n");
    const SampleRecord upper(
        FullRecord().Client("\x9B\xC2\x9B").Message("\xC3\x9B\xC2\x85y\n\x9Bz\n"));
    const std::string masked = Written("columns", terminal, upper);
    EXPECT_NE(masked.find(" ??        "), std::string::npos) << masked;
    EXPECT_TRUE(masked.ends_with("\xC3\x9B?y\n" + std::string(79, ' ') + "?z\n")) << masked;
    // Not where a program reads.
    EXPECT_NE(Written("columns", Plain(), record).find('\x1b'), std::string::npos);
}

TEST(ShortFormTest, ShowsNamesInFull) {
    const SampleRecord record(FullRecord().Module(std::string(70, 'n')));
    EXPECT_EQ(Written("short", {}, record),
              "22:13:20.250 " + std::string(70, 'n') + " rx Info 15873/3050630000 link up\n");
}

TEST(ShortFormTest, WhatIsAbsentIsADash) {
    EXPECT_EQ(Written("short", {}, SampleRecord(LogRecord(1))), "             - - - -/- \n");
}

TEST(ShortFormTest, ControlCharactersAreMasked) {
    const SampleRecord record(
        FullRecord().Module("a\nb").Message("\r\nx\x1b\x7f\xC3\xA9" + std::string(5000, '\t')));
    EXPECT_EQ(Written("short", {}, record),
              "22:13:20.250 a?b rx Info 15873/3050630000 link up??x??"
              "\xC3\xA9" +
                  std::string(5000, '?') + "\n");
}

TEST(ShortFormTest, UpperControlCharactersAreMaskedAndLongTextIsCutBetweenCharacters) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
        std::string message(shift, '-');
        std::string expected = message;
        for (int i = 0; i < 3000; ++i) {
            // U+00DF, U+1F7DF and U+009B, the first two of which hold bytes like the third.
            message += "\xC3\x9F\xF0\x9F\x9F\x9F\xC2\x9B";
            expected += "\xC3\x9F\xF0\x9F\x9F\x9F?";
        }
        const std::string line = Written("short", {}, SampleRecord(LogRecord(1).Message(message)));
        EXPECT_TRUE(line.ends_with("- - - -/- " + expected + "\n")) << shift;
    }
}

TEST(ShortFormTest, MillisecondsOver999Carry) {
    const SampleRecord record(LogRecord(1).Time(1700000000, 2500));
    EXPECT_EQ(Written("short", {}, record).substr(0, 13), "22:13:22.500 ");
}

TEST(ShortFormTest, LabelsAreColored) {
    const FormSettings colors{.colors = true};
    const auto label = [&colors](const char* name) {
        return Written("short", colors, SampleRecord(LogRecord(1).Label(name)));
    };
    EXPECT_NE(label("Error").find("\x1b[1;31mError\x1b[0m"), std::string::npos);
    EXPECT_NE(label("Warning").find("\x1b[1;33mWarning\x1b[0m"), std::string::npos);
    const std::string info = label("Info");
    EXPECT_NE(info.find("mInfo\x1b[0m"), std::string::npos);
    EXPECT_EQ(info, label("Info"));
    EXPECT_EQ(Written("short", colors, SampleRecord(LogRecord(1))).find('\x1b'), std::string::npos);
}

TEST(JsonFormTest, HasAllMembersInOrder) {
    const SampleRecord record(FullRecord());
    EXPECT_EQ(Written("json", {}, record),
              R"({"time":"2023-11-14T22:13:20.250Z","host":"alpha","writer":4711,"pid":15873,)"
              R"("tid":3050630000,"module":"NetEngine","client":"rx","label":"Info",)"
              R"("message":"link up","seq":7,"file":"dir/zynlog-1.txt","offset":401})"
              "\n");
}

TEST(JsonFormTest, WhatIsAbsentIsNull) {
    EXPECT_EQ(Written("json", {}, SampleRecord(LogRecord(1), 0)),
              R"({"time":null,"host":"alpha","writer":4711,"pid":null,"tid":null,"module":null,)"
              R"("client":null,"label":null,"message":null,"seq":0,"file":"dir/zynlog-1.txt",)"
              R"("offset":401})"
              "\n");
    EXPECT_NE(Written("json", {}, SampleRecord(LogRecord(1).Module(""))).find(R"("module":"")"),
              std::string::npos);
}

TEST(JsonFormTest, InheritedTimeIsNotItsOwn) {
    SampleRecord record(LogRecord(1));
    record.InheritTime(1000);
    EXPECT_EQ(Written("json", {}, record).find(R"({"time":null,)"), 0U);
}

TEST(JsonFormTest, BytesThatAreNoUtf8AreKept) {
    SampleRecord record(LogRecord(1).Client("\xFF").Message("ok\xC3"));
    record.Host("h\x80").File("d/\xFE");
    EXPECT_EQ(Written("json", {}, record),
              "{\"time\":null,\"host\":\"h\xEF\xBF\xBD\",\"host_base64\":\"aIA=\",\"writer\":4711,"
              "\"pid\":null,\"tid\":null,\"module\":null,\"client\":\"\xEF\xBF\xBD\","
              "\"client_base64\":\"/w==\",\"label\":null,\"message\":\"ok\xEF\xBF\xBD\","
              "\"message_base64\":\"b2vD\",\"seq\":7,\"file\":\"d/\xEF\xBF\xBD\","
              "\"file_base64\":\"ZC/+\",\"offset\":401}\n");
}

TEST(JsonFormTest, MessageIsWhole) {
    const std::string text = "one\ntwo " + std::string(9000, 'x') + "\nthree";
    const std::string json = Written("json", {}, SampleRecord(LogRecord(1).Message(text)));
    EXPECT_NE(json.find("\"one\\ntwo " + std::string(9000, 'x') + "\\nthree\""), std::string::npos);
}

TEST(CsvFormTest, QuotesOnlyWhereItMust) {
    SampleRecord record(FullRecord().Module("a b;\t'").Client("a,b").Label("say \"x\""));
    EXPECT_EQ(Written("csv", {}, record),
              std::string(kCsvHeader) +
                  "2023-11-14T22:13:20.250Z,alpha,4711,15873,3050630000,a b;\t',\"a,b\","
                  "\"say \"\"x\"\"\",link up,7,dir/zynlog-1.txt,401\n");
    record.Host("h,").File("d\"/\n");
    EXPECT_EQ(Written("csv", Plain(), record),
              "2023-11-14T22:13:20.250Z,\"h,\",4711,15873,3050630000,a b;\t',\"a,b\","
              "\"say \"\"x\"\"\",link up,7,\"d\"\"/\n\",401\n");
}

TEST(CsvFormTest, WhatIsAbsentIsEmptyAndBytesStandAsTheyAre) {
    EXPECT_EQ(Written("csv", Plain(), SampleRecord(LogRecord(1).Message("\xFF\x01"))),
              ",alpha,4711,,,,,,\xFF\x01,7,dir/zynlog-1.txt,401\n");
}

TEST(CsvFormTest, SpecialCharactersAreFoundAnywhere) {
    for (const std::size_t length :
         {0U, 1U, 14U, 15U, 16U, 17U, 31U, 32U, 4031U, 4032U, 4033U, 5000U, 100'000U}) {
        const std::string text(length, 'x');
        const auto field = [](const std::string& message) {
            const std::string line =
                Written("csv", Plain(), SampleRecord(LogRecord(1).Message(message)));
            constexpr std::string_view kHead = ",alpha,4711,,,,,,";
            constexpr std::string_view kTail = ",7,dir/zynlog-1.txt,401\n";
            return line.substr(kHead.size(), line.size() - kHead.size() - kTail.size());
        };
        EXPECT_EQ(field(text), text);
        for (const char special : {',', '\n', '\r'}) {
            EXPECT_EQ(field(text + special), '"' + text + special + '"') << length;
            EXPECT_EQ(field(special + text), '"' + (special + text) + '"') << length;
        }
        EXPECT_EQ(field(text + '"' + text), '"' + text + "\"\"" + text + '"');
    }
}

TEST(CountFormTest, CountsByFiveKinds) {
    const SampleRecord one(FullRecord());
    const SampleRecord two(FullRecord().Label("Error").Time(1600000000, 7));
    const SampleRecord bare(LogRecord(1));
    EXPECT_EQ(Written("count", {}, one, two, two, bare),
              "4 records, 09/13/2020 12:26:40.007 to 11/14/2023 22:13:20.250\n"
              "\n     RECORDS  MODULE\n           3  NetEngine\n           1  -\n"
              "\n     RECORDS  CLIENT\n           3  rx\n           1  -\n"
              "\n     RECORDS  LABEL\n           2  Error\n           1  -\n           1  Info\n"
              "\n     RECORDS  PID\n           3  15873\n           1  -\n"
              "\n     RECORDS  HOST\n           4  alpha\n");
}

TEST(CountFormTest, NoRecordsAreCountedToo) {
    EXPECT_EQ(Written("count", {}).substr(0, 10), "0 records\n");
    EXPECT_EQ(Written("count-json", {}),
              R"({"records":0,"first":null,"last":null,"module":{},"client":{},"label":{},)"
              R"("pid":{},"host":{}})"
              "\n");
}

TEST(CountFormTest, NamesThatBecomeEqualAreAddedUp) {
    const SampleRecord a(LogRecord(1).Module("x\xFF").Pid(10));
    const SampleRecord b(LogRecord(1).Module("x\xFE").Pid(9));
    const SampleRecord c(LogRecord(1).Module("y").Pid(9));
    EXPECT_EQ(Written("count-json", {}, a, b, c),
              "{\"records\":3,\"first\":null,\"last\":null,"
              "\"module\":{\"x\xEF\xBF\xBD\":2,\"y\":1},\"client\":{\"\":3},\"label\":{\"\":3},"
              "\"pid\":{\"9\":2,\"10\":1},\"host\":{\"alpha\":3}}\n");
    EXPECT_EQ(Written("count", {}, SampleRecord(LogRecord(1).Module("\x1b"))).find('\x1b'),
              std::string::npos);
}

}  // namespace
