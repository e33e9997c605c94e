// zynlog-cat on a terminal: colours, and nothing that gives it orders.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "cli/CatFixture.h"
#include "testing/logs/LogWriter.h"
#include "testing/process/RunProgram.h"
#include "testing/process/Terminal.h"

namespace {

class CatTerminalTest : public CatFixture {
  protected:
    void SetUp() override {
        WriteLog("log", LogWriter().Block(LogBlock().Record(Record(1, "m\x1b]0;x\ay"))));
    }

    // What a terminal shows.
    std::string Shown(std::vector<std::string> arguments, ProgramRun run = {}) const {
        Terminal terminal;
        run.outputPath = terminal.Path();
        const ProgramResult result = Cat(std::move(arguments), std::move(run));
        EXPECT_EQ(result.error, "");
        EXPECT_EQ(result.status, 0);
        return terminal.Shown();
    }
    static ProgramRun NoColor(const std::string& value) {
        ProgramRun run;
        run.environment = {"NO_COLOR=" + value};
        return run;
    }
};

TEST_F(CatTerminalTest, ShortIsColouredByItsLabelAndMasked) {
    EXPECT_EQ(Shown({"log", "-o", "short", "--color=never"}),
              "22:13:21.250 Module1 client Odd 101/201 m?]0;x?y\r\n");
    const std::string colored = Shown({"log", "-o", "short"});
    const std::string before = "22:13:21.250 Module1 client ";
    ASSERT_TRUE(colored.starts_with(before + "\x1b[")) << colored;
    const std::size_t colorEnd = colored.find('m', before.size()) + 1;
    EXPECT_EQ(colored.substr(colorEnd), "Odd\x1b[0m 101/201 m?]0;x?y\r\n");
}

TEST_F(CatTerminalTest, LastWordOnColoursCountsAndBeatsTheEnvironment) {
    const auto isColored = [](const std::string& text) {
        return text.find('\x1b') != std::string::npos;
    };
    EXPECT_TRUE(isColored(Shown({"log", "-o", "short"}, NoColor(""))));
    EXPECT_FALSE(isColored(Shown({"log", "-o", "short"}, NoColor("0"))));
    EXPECT_TRUE(isColored(Shown({"log", "-o", "short", "--color=always"}, NoColor("1"))));
    EXPECT_FALSE(isColored(Shown({"log", "-o", "short", "--color=never"})));
    EXPECT_TRUE(isColored(Shown({"--color=never", "log", "-o", "short", "--color", "auto"})));
    EXPECT_FALSE(isColored(Shown({"log", "--color=always"}))) << "columns have no colours";
}

TEST_F(CatTerminalTest, ColumnsAreMaskedOnATerminalOnly) {
    const std::string shown = Shown({"log"});
    const std::string plain = Cat({"log"}).output;
    EXPECT_NE(plain.find("m\x1b]0;x\ay"), std::string::npos);
    EXPECT_NE(shown.find("m?]0;x?y"), std::string::npos) << shown;
}

// Both a byte by itself and its form in UTF-8 begin a sequence on some terminals.
TEST_F(CatTerminalTest, SecondSetOfControlCharactersIsMaskedToo) {
    WriteLog("log", LogWriter().Block(LogBlock().Record(Record(1,
                                                               "a\x9b"
                                                               "1m \xc2\x9b"
                                                               "2m \xc3\x9b \xe2\x82\xac"))));
    const std::string masked = " a?1m ?2m \xc3\x9b \xe2\x82\xac";
    for (const char* form : {"short", "columns"}) {
        EXPECT_NE(Shown({"log", "-o", form, "--color=never"}).find(masked + "\r\n"),
                  std::string::npos)
            << form;
    }
    EXPECT_NE(Cat({"log", "-o", "short"}).output.find(masked + "\n"), std::string::npos);
}

TEST_F(CatTerminalTest, MessageThatIsCutIsMaskedToItsEnd) {
    LogBlock block;
    for (std::uint32_t i = 0; i < 40; ++i) {
        block.Record(Record(i, std::string(i * 60, '\n') + std::string(1400, '\x1b')));
    }
    WriteLog("log", LogWriter().Block(block));
    EXPECT_NE(Cat({"log"}).output.find('\x1b'), std::string::npos);
    const std::string shown = Shown({"log", "-n", "2"}) + Shown({"log", "-n", "1"});
    EXPECT_EQ(shown.find('\x1b'), std::string::npos);
    EXPECT_NE(shown.find("Module39"), std::string::npos);
}

}  // namespace
