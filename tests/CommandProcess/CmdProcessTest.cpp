#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "CommandProcess/CmdProcess.h"

namespace {

using Options = std::map<std::string, std::string>;

class Recorder final : public CommandLineParser::CommandProcessor {
  public:
    void Process(CommandLineParser::CommandOptions& options) override {
        ++calls;
        seen = options;
    }
    int calls = 0;
    Options seen;
};

class CommandLine : public testing::Test {
  protected:
    CommandLine() { parser_.Add("export", &recorder_); }

    void Run(std::vector<const char*> arguments) {
        parser_.Process(static_cast<unsigned int>(arguments.size()), arguments.data());
    }
    Options OptionsOf(const std::vector<const char*>& arguments) {
        Run(arguments);
        return recorder_.seen;
    }
    std::string FaultOf(const std::vector<const char*>& arguments) {
        try {
            Run(arguments);
        } catch (const CommandLineParser::SyntaxException& fault) {
            EXPECT_EQ(fault.file, "src/CommandProcess/CmdProcess.cpp");
            EXPECT_GT(fault.line, 0U);
            EXPECT_EQ(recorder_.calls, 0);
            return fault.what();
        }
        return "none";
    }

    Recorder recorder_;
    CommandLineParser parser_;
};

TEST_F(CommandLine, NoArguments) {
    const char* none = nullptr;
    EXPECT_THROW(parser_.Process(0, &none), CommandLineParser::SyntaxException);
    EXPECT_EQ(FaultOf({}), "Incorrect number of arguments");
}

TEST_F(CommandLine, NullArgumentVector) {
    try {
        parser_.Process(1, nullptr);
        FAIL() << "a null vector was accepted";
    } catch (const CommandLineParser::SyntaxException& fault) {
        EXPECT_STREQ(fault.what(), "Invalid arguments");
    }
}

TEST_F(CommandLine, CommandWordInAnyCase) {
    Run({"EXPORT"});
    Run({"Export"});
    Run({"export"});
    EXPECT_EQ(recorder_.calls, 3);
}

TEST_F(CommandLine, OptionNameInAnyCaseAndEmptyValue) {
    EXPECT_EQ(OptionsOf({"export", "-F"}), (Options{{"F", ""}}));
    EXPECT_EQ(OptionsOf({"export", "-f"}), (Options{{"F", ""}}));
}

TEST_F(CommandLine, RepeatedOptionKeepsItsFirstValue) {
    EXPECT_EQ(OptionsOf({"export", "-f", "-f"}), (Options{{"F", ""}}));
    EXPECT_EQ(OptionsOf({"export", "-d", "a", "-D", "b"}), (Options{{"D", "a"}}));
}

TEST_F(CommandLine, LastOptionWithoutAValue) {
    EXPECT_EQ(OptionsOf({"export", "-d"}), (Options{{"D", ""}}));
}

TEST_F(CommandLine, UnknownOptionsAreStored) {
    EXPECT_EQ(OptionsOf({"export", "-x", "5"}), (Options{{"X", "5"}}));
}

TEST_F(CommandLine, ExamplesOfTheOptionsMap) {
    EXPECT_EQ(OptionsOf({"export", "-d", "/logs", "-F", "out.txt", "-silent"}),
              (Options{{"D", "/logs"}, {"F", "out.txt"}, {"SILENT", ""}}));
    EXPECT_EQ(OptionsOf({"export", "-f", "-m", "/tmp"}), (Options{{"F", ""}, {"M", "/tmp"}}));
    EXPECT_EQ(OptionsOf({"export", "-on"}), (Options{{"ON", ""}}));
}

TEST_F(CommandLine, BareSecondWordIsAnOptionFaultEvenForAnUnknownCommand) {
    EXPECT_EQ(FaultOf({"foo", "bar"}), "Incorrect option syntax");
    EXPECT_EQ(FaultOf({"foo", "-x"}), "Invalid command");
    EXPECT_EQ(FaultOf({"export", "-d", "a", "b"}), "Incorrect option syntax");
}

TEST_F(CommandLine, LoneDashHasNoOptionName) {
    EXPECT_EQ(FaultOf({"export", "-"}), "Missing option name");
}

TEST_F(CommandLine, EmptyArgumentIsAFaultAsAnOptionAndFineAsAValue) {
    EXPECT_EQ(FaultOf({"export", ""}), "Incorrect option syntax");
    EXPECT_EQ(OptionsOf({"export", "-d", ""}), (Options{{"D", ""}}));
}

TEST_F(CommandLine, ValueCannotBeginWithADash) {
    EXPECT_EQ(OptionsOf({"export", "-f", "-silent"}), (Options{{"F", ""}, {"SILENT", ""}}));
}

TEST_F(CommandLine, OnlyOneLeadingDashIsRemoved) {
    EXPECT_EQ(OptionsOf({"export", "--f"}), (Options{{"-F", ""}}));
}

TEST_F(CommandLine, NonAsciiBytesPassThroughTheDefaultLocale) {
    EXPECT_EQ(OptionsOf({"export", "-\xE4"}), (Options{{"\xE4", ""}}));
}

TEST_F(CommandLine, RequiredOptionThatIsAbsent) {
    const CommandLineParser::CommandOptions options{{"F", "x"}};
    EXPECT_EQ(options["F"], "x");
    try {
        static_cast<void>(options["f"]);
        FAIL() << "an absent option was found";
    } catch (const CommandLineParser::SyntaxException& fault) {
        EXPECT_STREQ(fault.what(), "Command option not found");
    }
}

TEST_F(CommandLine, SecondProcessorOfAWordIsIgnored) {
    Recorder other;
    parser_.Add("EXPORT", &other);
    Run({"export"});
    EXPECT_EQ(recorder_.calls, 1);
    EXPECT_EQ(other.calls, 0);
}

TEST_F(CommandLine, NullProcessorIsAProgrammingErrorNotASyntaxFault) {
    try {
        parser_.Add("x", nullptr);
        FAIL() << "a null processor was accepted";
    } catch (const CommandLineParser::SyntaxException&) {
        FAIL() << "reported as a usage fault";
    } catch (const std::logic_error& failure) {
        EXPECT_STREQ(failure.what(), "Bad parameter:NewProcessor is not a valid pointer");
    }
}

TEST_F(CommandLine, ProcessorFailurePassesUnchanged) {
    class Failing final : public CommandLineParser::CommandProcessor {
      public:
        void Process(CommandLineParser::CommandOptions& /*options*/) override { throw 42; }
    } failing;
    parser_.Add("fail", &failing);
    EXPECT_THROW(Run({"fail"}), int);
}

}  // namespace
