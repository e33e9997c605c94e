#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TraceData/RecordDecoder.h"
#include "TraceData/text/LegacyZynRecord.h"
#include "TraceData/text/TextFile.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/EnvironmentVariable.h"
#include "testing/process/Files.h"

namespace {

const std::string kZeroTime = "01/01/1970 00:00:00.000";
const std::string kContinuation = "\n" + std::string(79, ' ');

std::uint64_t FixedClock() { return 1700000000123; }

// A record that is built packet by packet, and what writes it.
class TestRecord {
  public:
    template <typename... Arguments>
    explicit TestRecord(Arguments&&... arguments)
        : writer_(std::forward<Arguments>(arguments)...) {}

    void Reset() { packets_.Reset(0); }
    void SetTime(std::uint32_t seconds, std::uint16_t milliseconds) {
        packets_.Time(seconds, milliseconds);
    }
    void SetProcess(std::uint32_t number) { packets_.Pid(number); }
    void SetThread(std::uint32_t number) { packets_.Tid(number); }
    void SetNames(std::string_view module, std::string_view client, std::string_view label) {
        packets_.Module(module).Client(client).Label(label);
    }
    void AddMessage(std::string_view text) { packets_.Message(text); }
    void AddControlMessage(std::uint32_t code, std::uint32_t process) {
        packets_.Control(code, process);
    }

    void Write(TextFile& file) {
        const std::string bytes = packets_.Data() + std::string(kReadSlack, '#');
        writer_.Write(
            decoder_.Decode(bytes.data(), static_cast<std::uint32_t>(packets_.Data().size())),
            file);
    }

  private:
    LegacyZynRecord writer_;
    LogRecord packets_;
    RecordDecoder decoder_;
};

class LegacyZynRecordTest : public testing::Test {
  protected:
    // A record at time 0 with the given separator.
    TestRecord& Record(std::string_view separator) {
        record_.emplace_back(separator, FixedClock);
        record_.back().SetTime(0, 0);
        return record_.back();
    }

    // What the record writes.
    std::string Line(TestRecord& record) {
        const std::string path = directory_ / "line";
        TextFile file(path, {});
        record.Write(file);
        file.Close();
        return ReadFile(path);
    }

    // The message of a record whose texts are added one by one, as the line shows it.
    std::string Message(const std::vector<std::string>& parts) {
        TestRecord& record = Record("|");
        for (const std::string& part : parts) {
            record.AddMessage(part);
        }
        return AfterHead(Line(record));
    }

    static std::string AfterHead(const std::string& line) {
        const std::string head = kZeroTime + "|    0|         0||||";
        EXPECT_EQ(line.substr(0, head.size()), head);
        return line.substr(std::min(head.size(), line.size()));
    }

    EnvironmentVariable zone_{"TZ", "UTC0"};
    TempDirectory directory_;
    std::deque<TestRecord> record_;
};

TEST_F(LegacyZynRecordTest, EmptySeparatorJoinsTheFields) {
    TestRecord& record = Record("");
    record.SetTime(1700000000, 7);
    record.SetProcess(7);
    record.SetThread(1234);
    record.SetNames("Mod", "Cli", "Lab");
    record.AddMessage("text");
    EXPECT_EQ(Line(record), "11/14/2023 22:13:20.007    7      1234ModCliLabtext\n");
}

TEST_F(LegacyZynRecordTest, DelimitedFieldsStandAsTheyAre) {
    TestRecord& record = Record("; ");
    record.SetNames("A module of many words", "C", "");
    record.AddMessage("x");
    EXPECT_EQ(Line(record), kZeroTime + ";     0;          0; A module of many words; C; ; x\n");
}

TEST_F(LegacyZynRecordTest, BlankSeparatorSelectsFixedWidth) {
    TestRecord& record = Record(" ");
    record.SetNames("Mod", "Cli", "Lab");
    record.AddMessage("x");
    EXPECT_EQ(Line(record),
              kZeroTime + "     0          0 Mod          Cli        Lab          x\n");
}

TEST_F(LegacyZynRecordTest, SeparatorThatBeginsWithABlankSelectsFixedWidthWithItself) {
    TestRecord& record = Record(" | ");
    record.SetNames("Mod", "Cli", "Lab");
    EXPECT_EQ(Line(record), kZeroTime +
                                " |     0 |          0 | Mod          | Cli        | Lab          "
                                "| \n");
}

TEST_F(LegacyZynRecordTest, SeparatorThatEndsWithABlankIsDelimited) {
    EXPECT_EQ(Line(Record("; ")), kZeroTime + ";     0;          0; ; ; ; \n");
}

TEST_F(LegacyZynRecordTest, EverySeparatorLengthUpToFiftyIsWrittenWhole) {
    for (std::size_t length = 0; length <= 60; ++length) {
        std::string separator;
        for (std::size_t i = 0; i < length; ++i) {
            separator += static_cast<char>('A' + i % 26);
        }
        const std::string kept = separator.substr(0, 50);
        TestRecord& record = Record(separator);
        record.SetNames("m", "c", "l");
        record.AddMessage("t");
        std::string expected = kZeroTime;
        for (const char* field : {"    0", "         0", "m", "c", "l", "t"}) {
            expected += kept + field;
        }
        EXPECT_EQ(Line(record), expected + "\n") << length;
    }
}

TEST_F(LegacyZynRecordTest, LongBlankSeparatorKeepsFiftyCharactersInFixedWidth) {
    const std::string separator = " " + std::string(70, '=');
    TestRecord& record = Record(separator);
    record.SetNames("m", "c", "l");
    const std::string s = separator.substr(0, 50);
    EXPECT_EQ(Line(record), kZeroTime + s + "    0" + s + "         0" + s + "m           " + s +
                                "c         " + s + "l           " + s + "\n");
}

TEST_F(LegacyZynRecordTest, LongNumbersAreWrittenWhole) {
    TestRecord& record = Record("|");
    record.SetProcess(UINT32_MAX);
    record.SetThread(UINT32_MAX);
    EXPECT_EQ(Line(record), kZeroTime + "|4294967295|4294967295||||\n");
}

// The column rule, step by step as the output format states it.
std::string Fitted(const std::string& text, std::size_t width) {
    const std::size_t length = text.size();
    std::size_t head = std::min(width / 2, length);
    std::size_t tail = std::min(length - head, width - width / 2);
    std::size_t dots = 0;
    if (length > width) {
        if (head >= 2) {
            --head;
        }
        if (tail >= 2) {
            --tail;
        }
        dots = width - head - tail;
        if (tail >= 3) {
            head = head + tail - 2;
            tail = 2;
        }
    } else if (tail > 2) {
        head = head + tail - 2;
        tail = 2;
    }
    std::string column = text.substr(0, head) + std::string(dots, '.');
    column += text.substr(length - tail);
    column.resize(std::max(column.size(), width), ' ');
    return column;
}

std::string Letters(std::size_t count, char first) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += static_cast<char>(first + static_cast<char>(i % 26));
    }
    return text;
}

TEST_F(LegacyZynRecordTest, EveryTextLengthIsFittedToItsColumnByTheRule) {
    for (const char* separator : {" ", " : ", "        |", "         |"}) {
        const std::string s = separator;
        for (std::size_t length = 0; length <= 50; ++length) {
            TestRecord& record = Record(separator);
            const std::string module = Letters(length, 'a');
            const std::string client = Letters(50 - length, 'A');
            const std::string label = Letters(length, 'A');
            record.SetNames(module, client, label);
            record.AddMessage("t");
            ASSERT_EQ(Line(record), kZeroTime + s + "    0" + s + "         0" + s +
                                        Fitted(module, 12) + s + Fitted(client, 10) + s +
                                        Fitted(label, 12) + s + "t\n")
                << length;
        }
    }
}

TEST_F(LegacyZynRecordTest, TextOfItsColumnsWidthIsWrittenWhole) {
    TestRecord& record = Record(" ");
    record.SetNames("ModuleTwelve", "ClientsTen", "LabelsTwelve");
    EXPECT_EQ(Line(record).substr(41), "ModuleTwelve ClientsTen LabelsTwelve \n");
}

TEST_F(LegacyZynRecordTest, TwentyCharactersInAColumnOfTenKeepSixAndTheLastTwo) {
    TestRecord& record = Record(" ");
    record.SetNames("", "abcdefghijklmnopqrst", "");
    EXPECT_EQ(Line(record).substr(54, 10), "abcdef..st");
}

TEST_F(LegacyZynRecordTest, ModuleOfSixtyCharactersKeepsFiftyAndShowsEightAndTheLastTwo) {
    const std::string name = Letters(60, '0');
    TestRecord& fixed = Record(" ");
    fixed.SetNames(name, "", "");
    EXPECT_EQ(Line(fixed).substr(41, 12), name.substr(0, 8) + ".." + name.substr(48, 2));
    TestRecord& delimited = Record("|");
    delimited.SetNames(name, name, name);
    const std::string kept = name.substr(0, 50);
    EXPECT_EQ(Line(delimited),
              kZeroTime + "|    0|         0|" + kept + "|" + kept + "|" + kept + "|\n");
}

TEST_F(LegacyZynRecordTest, LastNameOfAKindWins) {
    TestRecord& record = Record("|");
    record.SetNames("first module", "first client", "first label");
    record.SetNames("m", "", "l");
    EXPECT_EQ(Line(record), kZeroTime + "|    0|         0|m||l|\n");
}

TEST_F(LegacyZynRecordTest, NamesHoldAnyByte) {
    const std::string module("a\0b\nc", 5);
    TestRecord& record = Record("|");
    record.SetNames(module, "", "");
    EXPECT_EQ(Line(record), kZeroTime + "|    0|         0|" + module + "|||\n");
}

TEST_F(LegacyZynRecordTest, MessageWithoutLineFeedIsTakenWhole) {
    EXPECT_EQ(Message({"plain text"}), "plain text\n");
    EXPECT_EQ(Message({""}), "\n");
    EXPECT_EQ(Message({std::string("nul\0inside", 10)}), std::string("nul\0inside\n", 11));
}

TEST_F(LegacyZynRecordTest, LinesOfAMessageStandUnderEachOther) {
    EXPECT_EQ(Message({"a\nb\n"}), "a" + kContinuation + "b\n");
    EXPECT_EQ(Message({"a\n"}), "a\n");
    EXPECT_EQ(Message({"a\n\nb\n"}), "a" + kContinuation + kContinuation + "b\n");
}

TEST_F(LegacyZynRecordTest, TextAfterTheLastLineFeedIsLost) {
    EXPECT_EQ(Message({"a\nb"}), "a\n") << "Kept as is: services end multi-line texts with a line "
                                           "feed, and scripts know the output";
    EXPECT_EQ(Message({"\nb"}), "\n");
    EXPECT_EQ(Message({"a\nb\nc"}), "a" + kContinuation + "b\n");
}

TEST_F(LegacyZynRecordTest, NothingButLineFeeds) {
    EXPECT_EQ(Message({"\n"}), "\n");
    EXPECT_EQ(Message({"\n\n"}), kContinuation + "\n");
}

TEST_F(LegacyZynRecordTest, MessageTextsAppendEachTreatedForItself) {
    EXPECT_EQ(Message({"one", "two"}), "onetwo\n");
    EXPECT_EQ(Message({"one\nlost", "two\nlost"}), "onetwo\n");
    EXPECT_EQ(Message({"one", "a\nb\n", "two"}), "onea" + kContinuation + "btwo\n");
    EXPECT_EQ(Message({"", "", "x", ""}), "x\n");
}

TEST_F(LegacyZynRecordTest, MessageOfAMillionLineFeedsIsCutAtTheLimit) {
    const std::string line = Message({std::string(1000000, '\n')});
    std::string expected;
    while (expected.size() < 2048) {
        expected += kContinuation;
    }
    const std::size_t head = kZeroTime.size() + 21;
    EXPECT_EQ(line, expected.substr(0, 2048 - head));
}

TEST_F(LegacyZynRecordTest, MessageKeeps2048Characters) {
    // The line cuts it further, so the limit of the message itself shows only in what is appended.
    TestRecord& record = Record("");
    record.AddMessage(std::string(2040, 'a'));
    record.AddMessage("bbbbbbbbbbbb");
    record.AddMessage("c");
    record.AddControlMessage(1, 1);
    EXPECT_EQ(Line(record),
              kZeroTime + "    0         0" + std::string(2048 - kZeroTime.size() - 15, 'a'));
}

TEST_F(LegacyZynRecordTest, LineOf2048CharactersEndsWithoutALineFeed) {
    const std::size_t head = kZeroTime.size() + 21;
    for (std::size_t length = 2048 - head - 3; length <= 2048 - head + 3; ++length) {
        const std::string text(length, 'm');
        TestRecord& record = Record("|");
        record.AddMessage(text);
        std::string expected = kZeroTime + "|    0|         0||||" + text + "\n";
        expected.resize(std::min<std::size_t>(expected.size(), 2048));
        EXPECT_EQ(Line(record), expected) << length;
    }
}

TEST_F(LegacyZynRecordTest, LongestHeadStillLeavesRoomForTheMessage) {
    const std::string separator(50, '/');
    const std::string name(50, 'n');
    TestRecord& record = Record(separator);
    record.SetTime(UINT32_MAX, 65535);
    record.SetProcess(UINT32_MAX);
    record.SetThread(UINT32_MAX);
    record.SetNames(name, name, name);
    record.AddMessage(std::string(3000, 'm'));
    std::string expected = "02/07/2106 06:28:15.65535";
    for (const std::string& field : {std::string("4294967295"), std::string("4294967295"), name,
                                     name, name, std::string(2048, 'm')}) {
        expected += separator + field;
    }
    EXPECT_EQ(Line(record), expected.substr(0, 2048));
}

struct ControlCase {
    std::uint32_t code;
    const char* text;
};

TEST_F(LegacyZynRecordTest, ControlMessagesTellSenderAndMeaning) {
    for (const auto& [code, text] :
         {ControlCase{1, "Client attached"}, ControlCase{2, "Client detached"},
          ControlCase{3, "Pauseed tracing"}, ControlCase{4, "Resumeed tracing"},
          ControlCase{5, "Reloaded configuration"}, ControlCase{6, "Turned on preservation"},
          ControlCase{7, "Turned off preservation"}, ControlCase{0, "Unknown control message:0"},
          ControlCase{8, "Unknown control message:8"}, ControlCase{9, "Unknown control message:9"},
          ControlCase{UINT32_MAX, "Unknown control message:4294967295"}}) {
        TestRecord& record = Record("|");
        record.AddControlMessage(code, 4321);
        EXPECT_EQ(AfterHead(Line(record)),
                  "[Control message from process 4321]:" + std::string(text) + " \n");
    }
}

TEST_F(LegacyZynRecordTest, ControlMessagesAndTextsAppend) {
    TestRecord& record = Record("|");
    record.AddMessage("before ");
    record.AddControlMessage(1, 0);
    record.AddControlMessage(2, UINT32_MAX);
    record.AddMessage("after");
    EXPECT_EQ(AfterHead(Line(record)),
              "before [Control message from process 0]:Client attached [Control message from "
              "process 4294967295]:Client detached after\n");
}

TEST_F(LegacyZynRecordTest, ControlMessageIsCutAtTheMessageLimit) {
    // Seen through a message that is full only with the control text's first characters.
    TestRecord& record = Record("");
    const std::size_t head = kZeroTime.size() + 15;
    record.AddMessage(std::string(2048 - head - 10, 'a'));
    record.AddControlMessage(1, 1);
    EXPECT_EQ(Line(record),
              kZeroTime + "    0         0" + std::string(2048 - head - 10, 'a') + "[Control m");
    TestRecord& full = Record("");
    full.AddMessage(std::string(2045, 'a'));
    EXPECT_NO_THROW(full.AddControlMessage(1, 1));
    EXPECT_NO_THROW(full.AddControlMessage(1, 1));
    EXPECT_EQ(Line(full).size(), 2048U);
}

TEST_F(LegacyZynRecordTest, MillisecondsHaveThreeDigitsOrMore) {
    TestRecord& record = Record("|");
    for (const auto& [milliseconds, text] :
         std::vector<std::pair<std::uint16_t, std::string>>{{0, "000"},
                                                            {9, "009"},
                                                            {10, "010"},
                                                            {99, "099"},
                                                            {100, "100"},
                                                            {999, "999"},
                                                            {1000, "1000"},
                                                            {9999, "9999"},
                                                            {10000, "10000"},
                                                            {65535, "65535"}}) {
        record.SetTime(0, milliseconds);
        EXPECT_EQ(Line(record), "01/01/1970 00:00:00." + text + "|    0|         0||||\n");
    }
}

TEST_F(LegacyZynRecordTest, TimesAreUnsignedAndLocal) {
    TestRecord& record = Record("|");
    record.SetTime(0x80000000U, 5);
    EXPECT_EQ(Line(record).substr(0, 23), "01/19/2038 03:14:08.005");
    zone_.Set("EST5");
    tzset();
    TestRecord& west = Record("|");
    west.SetTime(0, 0);
    EXPECT_EQ(Line(west).substr(0, 23), "12/31/1969 19:00:00.000");
}

TEST_F(LegacyZynRecordTest, RecordWithoutAnyPacketShowsTheClocksTimeAndZeros) {
    TestRecord& record = Record("|");
    record.Reset();
    EXPECT_EQ(Line(record), "11/14/2023 22:13:20.123|    0|         0||||\n");
}

TEST_F(LegacyZynRecordTest, RecordWithoutATimeCanShowBlanksInItsPlace) {
    TestRecord& record = record_.emplace_back("|", FixedClock, MissingTime::kBlanks);
    record.AddMessage("text");
    EXPECT_EQ(Line(record), std::string(23, ' ') + "|    0|         0||||text\n");
    record.SetTime(0, 0);
    EXPECT_EQ(Line(record), kZeroTime + "|    0|         0||||text\n");
}

TEST_F(LegacyZynRecordTest, RecordWithoutATimeShowsTheSystemsClockByDefault) {
    record_.emplace_back("|");
    const auto before = static_cast<std::uint32_t>(std::time(nullptr));
    const std::string line = Line(record_.back());
    const auto after = static_cast<std::uint32_t>(std::time(nullptr));
    CalendarText calendar;
    bool found = false;
    for (std::uint32_t second = before; second <= after; ++second) {
        found =
            found || line.substr(0, 20) == std::string(calendar.For(second), CalendarText::kLength);
    }
    EXPECT_TRUE(found) << line;
}

TEST_F(LegacyZynRecordTest, ResetForgetsEveryValue) {
    TestRecord& record = Record("|");
    record.SetProcess(1);
    record.SetThread(2);
    record.SetNames("m", "c", "l");
    record.AddMessage("a\nb\n");
    record.AddControlMessage(1, 1);
    Line(record);
    record.Reset();
    record.SetTime(0, 0);
    EXPECT_EQ(AfterHead(Line(record)), "\n");
}

}  // namespace
