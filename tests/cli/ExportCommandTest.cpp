// What export reads and writes, option by option.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "cli/ExportFixture.h"
#include "testing/process/Files.h"

namespace {

using testing::ElementsAre;

class ExportCommandTest : public ExportFixture {
  protected:
    void WriteTwoLogs() const {
        Write("zynlog-0001.txt", Log("one"));
        Write("zynlog-0002.txt", Log("two"));
    }
    const std::string two_ = kColumns + Line("one") + Line("two");
};

TEST_F(ExportCommandTest, WithoutOptionsEachConfiguredLogGetsAFileInTheCurrentDirectory) {
    WriteTwoLogs();
    ConfigureLogs(logs_);
    ExportSilently({});
    EXPECT_THAT(ListDirectory(directory_.Path()),
                ElementsAre("EXPORT-zynlog-0001.txt", "EXPORT-zynlog-0002.txt", "cfg", "logs"));
    EXPECT_EQ(Content("EXPORT-zynlog-0001.txt"), kColumns + Line("one"));
    EXPECT_EQ(Content("EXPORT-zynlog-0002.txt"), kColumns + Line("two"));
    EXPECT_THAT(ListDirectory(logs_), ElementsAre("zynlog-0001.txt", "zynlog-0002.txt"));
}

TEST_F(ExportCommandTest, ConfiguredDirectoryIsExpanded) {
    Write("zynlog-0001.txt", Log("one"));
    ConfigureLogs("$(ZYN_T_BASE)/logs");
    ProgramRun run = Run({"export", "-f", "-silent"});
    run.environment.push_back("ZYN_T_BASE=" + directory_.Path());
    EXPECT_EQ(Finish(run).error, kToolBanner);
    EXPECT_EQ(Content("zynexport.txt"), kColumns + Line("one"));
}

TEST_F(ExportCommandTest, GivenDirectoryIsNotExpanded) {
    Write("zynlog-0001.txt", Log("one"));
    ProgramRun run = Run({"export", "-d", "$(ZYN_T_BASE)/logs", "-f", "-silent"});
    run.environment.push_back("ZYN_T_BASE=" + directory_.Path());
    EXPECT_EQ(Finish(run).status, 0);
    EXPECT_EQ(Content("zynexport.txt"), kColumns);
}

TEST_F(ExportCommandTest, WithoutConfigurationThereAreNoFilesAndNoError) {
    ExportSilently({});
    EXPECT_THAT(ListDirectory(directory_.Path()), ElementsAre("logs"));
    ExportSilently({"-f"});
    EXPECT_EQ(Content("zynexport.txt"), kColumns);
}

TEST_F(ExportCommandTest, ConfigurationThatCannotBeReadIsWrittenToTheSystemLog) {
    ProgramRun run = Run({"export"});
    run.environment.push_back("ZYN_TEST_SYSLOG_FILE=" + (directory_ / "syslog"));
    run.preloadLibrary = ZYN_SYSLOG_PRELOAD;
    const ProgramResult result = Finish(run);
    EXPECT_EQ(result.error, kToolBanner);
    EXPECT_EQ(result.status, 0);
    const std::string record = Content("syslog");
    EXPECT_TRUE(record.starts_with("ZynServer|")) << record;
    EXPECT_EQ(record.find('\n'), record.size() - 1) << "one record";
}

TEST_F(ExportCommandTest, ConfigurationIsNotReadWhenTheDirectoryIsGiven) {
    WriteTwoLogs();
    WriteConfiguration("no XML at all");
    ProgramRun run = Run({"export", "-d", logs_, "-f", "-silent"});
    run.environment.push_back("ZYN_TEST_SYSLOG_FILE=" + (directory_ / "syslog"));
    run.preloadLibrary = ZYN_SYSLOG_PRELOAD;
    EXPECT_EQ(Finish(run).status, 0);
    EXPECT_EQ(Content("zynexport.txt"), two_);
    EXPECT_FALSE(Exists("syslog"));
}

TEST_F(ExportCommandTest, FileWithoutNameIsZynexport) {
    WriteTwoLogs();
    ExportSilently({"-d", logs_, "-f"});
    EXPECT_EQ(Content("zynexport.txt"), two_);
}

TEST_F(ExportCommandTest, FileWithAnEmptyNameIsZynexport) {
    WriteTwoLogs();
    ExportSilently({"-d", logs_, "-f", ""});
    EXPECT_EQ(Content("zynexport.txt"), two_);
}

TEST_F(ExportCommandTest, FileWithANameIsOverwritten) {
    WriteTwoLogs();
    WriteFile(directory_ / "out", std::string(100000, 'o'));
    ExportSilently({"-D", logs_ + "/", "-F", "out"});
    EXPECT_EQ(Content("out"), two_);
}

TEST_F(ExportCommandTest, OneFileTakesNamesThatContainTxtAnywhere) {
    Write("zynlog-1.txt.old", Log("old"));
    Write("zynlog-2txt", Log("bare"));
    Write("zynlog-3.log", Log("no"));
    Write("other-4.txt", Log("no"));
    ExportSilently({"-d", logs_, "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("old") + Line("bare"));
}

TEST_F(ExportCommandTest, BlocksRunOnFromFileToFile) {
    LogWriter log;
    log.Block(Block("one")).Block(Block("two")).Block(Block("three"));
    log.WriteFiles(logs_, {10, 60, 130, 200});
    ExportSilently({"-d", logs_, "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("one") + Line("two") + Line("three"));
}

TEST_F(ExportCommandTest, ManyFilesGoIntoTheGivenDirectory) {
    WriteTwoLogs();
    Write("zynlog-3txt", Log("not with a full stop"));
    const std::string target = directory_.MakeDirectory("target");
    ExportSilently({"-d", logs_, "-m", target});
    EXPECT_EQ(ReadDirectory(target), (std::map<std::string, std::string>{
                                         {"EXPORT-zynlog-0001.txt", kColumns + Line("one")},
                                         {"EXPORT-zynlog-0002.txt", kColumns + Line("two")}}));
}

TEST_F(ExportCommandTest, ManyFilesWithoutADirectoryGoIntoTheCurrentOne) {
    WriteTwoLogs();
    for (const std::vector<std::string>& option :
         {std::vector<std::string>{"-m"}, std::vector<std::string>{"-m", ""}}) {
        std::vector<std::string> arguments{"-d", logs_};
        arguments.insert(arguments.end(), option.begin(), option.end());
        ExportSilently(arguments);
        EXPECT_EQ(Content("EXPORT-zynlog-0001.txt"), kColumns + Line("one"));
        unlink((directory_ / "EXPORT-zynlog-0001.txt").c_str());
    }
}

TEST_F(ExportCommandTest, ManyWinsOverOneFile) {
    WriteTwoLogs();
    ExportSilently({"-d", logs_, "-f", "out", "-m", "."});
    EXPECT_THAT(ListDirectory(directory_.Path()),
                ElementsAre("EXPORT-zynlog-0001.txt", "EXPORT-zynlog-0002.txt", "logs"));
}

TEST_F(ExportCommandTest, ManyFilesReadTheFilesThatExtendTheirNamesToo) {
    Write("zynlog-1.txt", Log("one"));
    Write("zynlog-10.txt", Log("ten"));
    Write("zynlog-1.txt.old", Log("old"));
    ExportSilently({"-d", logs_, "-m"});
    EXPECT_EQ(Content("EXPORT-zynlog-1.txt"), kColumns + Line("one") + Line("old") + Line("ten"));
    EXPECT_EQ(Content("EXPORT-zynlog-10.txt"), kColumns + Line("ten"));
    // Its name without the last four characters is "zynlog-1.txt".
    EXPECT_EQ(Content("EXPORT-zynlog-1.txt.txt"), kColumns + Line("one") + Line("old"))
        << "Kept as is: the last four characters go, whatever they are";
}

TEST_F(ExportCommandTest, ManyFilesDoNotFollowABlockIntoTheNextFile) {
    LogWriter log;
    log.Block(Block("one")).Block(Block("two"));
    log.WriteFiles(logs_, {Block("one").Bytes().size() + 20});
    ExpectFailure({"-d", logs_, "-m"}, "Bad logic:No more files available for read");
    EXPECT_EQ(Content("EXPORT-zynlog-0001.txt"), kColumns + Line("one"));
    EXPECT_FALSE(Exists("EXPORT-zynlog-0002.txt")) << "one failing file ends the export";
}

TEST_F(ExportCommandTest, OneSourceReadsTheFileAndThoseThatContinueIt) {
    Write("zynlog-0001.txt", Log("one"));
    Write("zynlog-0001b.txt", Log("more"));
    Write("zynlog-0001.log", Log("no"));
    Write("zynlog-0002.txt", Log("no"));
    ExportSilently({"-s", logs_ + "/zynlog-0001.txt"});
    EXPECT_EQ(Content("EXPORT-zynlog-0001.txt"), kColumns + Line("one") + Line("more"));
    EXPECT_EQ(ListDirectory(logs_).size(), 4U) << "written into the current directory";
}

TEST_F(ExportCommandTest, OneSourceIntoAGivenFile) {
    WriteTwoLogs();
    ExportSilently({"-s", logs_ + "/zynlog-0002.txt", "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("two"));
    ExportSilently({"-s", logs_ + "/zynlog-0002.txt", "-f"});
    EXPECT_EQ(Content("EXPORT-zynlog-0002.txt"), kColumns + Line("two"));
}

TEST_F(ExportCommandTest, OneSourceIgnoresManyAndKeepsTheFile) {
    WriteTwoLogs();
    ExportSilently({"-s", logs_ + "/zynlog-0001.txt", "-m", "nowhere", "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("one"));
    ExportSilently({"-s", logs_ + "/zynlog-0001.txt", "-m", "nowhere"});
    EXPECT_EQ(Content("EXPORT-zynlog-0001.txt"), kColumns + Line("one"));
}

TEST_F(ExportCommandTest, BareSourceNameIsReadFromTheCurrentDirectory) {
    WriteTwoLogs();
    ProgramRun run = Run({"export", "-s", "zynlog-0001.txt", "-f", "../out", "-silent"});
    run.directory = logs_;
    EXPECT_EQ(Finish(run).error, kToolBanner);
    EXPECT_EQ(Content("out"), kColumns + Line("one"));
}

TEST_F(ExportCommandTest, ContinuationsOfASourceHaveTheFullStopTxtInTheirNames) {
    Write("zynlog-1.txt", Log("one"));
    Write("zynlog-1txt", Log("no full stop"));
    Write("zynlog-1b.txt.old", Log("more"));
    ExportSilently({"-s", "logs/zynlog-1.txt", "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("one") + Line("more"));
}

// Into a private directory the text goes: what the root of the file system holds is not ours.
TEST_F(ExportCommandTest, SourceOfTheRootIsReadThere) {
    Write("zynlog-t-1.txt", Log("of the current directory"));
    ProgramRun run = Run({"export", "-s", "/zynlog-t-1.txt", "-f", "../out", "-silent"});
    run.directory = logs_;
    EXPECT_EQ(Finish(run).error, kToolBanner);
    EXPECT_EQ(Content("out"), kColumns);
}

// The name is empty, and so is the prefix: all files of the directory that have the part.
TEST_F(ExportCommandTest, SourceThatEndsInASlashIsAllOfThatDirectory) {
    Write("zynlog-1.txt", Log("one"));
    Write("copy.txt", Log("copy"));
    Write("copy.log", Log("no"));
    ExportSilently({"-s", "logs/", "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("copy") + Line("one"));
    ExportSilently({"-s", "logs/"});
    EXPECT_EQ(Content("EXPORT-"), kColumns + Line("copy") + Line("one"));
}

TEST_F(ExportCommandTest, EmptyDirectoryNameIsTheRoot) {
    WriteTwoLogs();
    ConfigureLogs(logs_);
    for (const char* form : {"-m", "-f"}) {
        ProgramRun run = Run({"export", "-d", "", form, "out", "-silent"});
        static_cast<void>(directory_.MakeDirectory("out"));
        if (form[1] == 'f') {
            run.directory = logs_;
        }
        EXPECT_EQ(CallsOf("opendir", run, directory_.Path(), EACCES), 1U) << form;
    }
    EXPECT_EQ(ReadFile(logs_ + "/out"), kColumns);
}

TEST_F(ExportCommandTest, ConfiguredPathOfWhichSlashesAloneAreLeftOpensNothing) {
    for (const char* path : {"$(ZYN_T_UNSET)", "$(ZYN_T_UNSET)/", "/$(ZYN_T_UNSET", ""}) {
        ConfigureLogs(path);
        for (const char* form : {"-m", "-f"}) {
            EXPECT_EQ(CallsOf("opendir", Run({"export", form, "-silent"}), directory_.Path()), 0U)
                << path << form;
        }
        EXPECT_EQ(Content("zynexport.txt"), kColumns);
    }
    ConfigureLogs("$(ZYN_T_UNSET)/none-of-this-name");
    EXPECT_EQ(CallsOf("opendir", Run({"export", "-f", "-silent"}), directory_.Path()), 1U);
}

TEST_F(ExportCommandTest, BackslashBehindADirectoryIsDroppedForTheListingAlone) {
    WriteTwoLogs();
    const std::string text =
        "Failed to open file for read [OS call failed:2(No such file or directory)]";
    ExpectFailure({"-d", "logs\\", "-f", "out"}, text);
    ExpectFailure({"-d", "logs\\", "-m"}, text);
    EXPECT_THAT(ListDirectory(directory_.Path()), ElementsAre("logs"));
    // Kept as is: the listing reads "logs", the files are opened in a directory with the backslash.
    const std::string twin = directory_.MakeDirectory("logs\\");
    WriteFile(twin + "/zynlog-0001.txt", Log("twin one"));
    WriteFile(twin + "/zynlog-0002.txt", Log("twin two"));
    WriteFile(twin + "/zynlog-0003.txt", Log("not listed"));
    ExportSilently({"-d", "logs\\", "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns + Line("twin one") + Line("twin two"));
}

TEST_F(ExportCommandTest, SourceNeedNotBeCalledZynlog) {
    Write("copy.txt", Log("copy"));
    ExportSilently({"-s", "logs/copy.txt"});
    EXPECT_EQ(Content("EXPORT-copy.txt"), kColumns + Line("copy"));
}

TEST_F(ExportCommandTest, SourceNameOfLessThanFourCharactersIsAPrefixAsItIs) {
    Write("ab-1.txt", Log("long"));
    Write("ab", Log("no part .txt"));
    ExportSilently({"-s", "logs/ab"});
    EXPECT_EQ(Content("EXPORT-ab"), kColumns + Line("long"));
}

TEST_F(ExportCommandTest, SourceNameOfFourCharactersIsAnEmptyPrefix) {
    Write("abcd", Log("no part .txt"));
    Write("x.txt", Log("any"));
    ExportSilently({"-s", "logs/abcd"});
    EXPECT_EQ(Content("EXPORT-abcd"), kColumns + Line("any"));
}

TEST_F(ExportCommandTest, SourceThatIsNotThereExportsNothing) {
    ExportSilently({"-s", "logs/zynlog-9.txt"});
    EXPECT_EQ(Content("EXPORT-zynlog-9.txt"), kColumns);
    ExportSilently({"-s", "none/zynlog-9.txt", "-f", "out"});
    EXPECT_EQ(Content("out"), kColumns);
}

TEST_F(ExportCommandTest, DirectoryWinsOverSource) {
    WriteTwoLogs();
    ExportSilently({"-d", logs_, "-s", logs_ + "/zynlog-0001.txt", "-f", "out"});
    EXPECT_EQ(Content("out"), two_);
}

TEST_F(ExportCommandTest, FirstOfRepeatedOptionsCounts) {
    WriteTwoLogs();
    ExportSilently({"-d", logs_, "-d", "none", "-f", "out", "-f", "other"});
    EXPECT_EQ(Content("out"), two_);
    EXPECT_FALSE(Exists("other"));
}

TEST_F(ExportCommandTest, UnknownOptionsAreIgnored) {
    WriteTwoLogs();
    ExportSilently({"-d", logs_, "-x", "5", "--f", "out", "-f", "real"});
    EXPECT_EQ(Content("real"), two_);
    EXPECT_FALSE(Exists("out"));
}

TEST_F(ExportCommandTest, SeparatorWithoutValueOrEmptyOrABlankMeansFixedWidth) {
    Write("zynlog-1.txt", Log("x"));
    const std::string fixed =
        "01/01/1970 00:00:00.000     7       1234 Mod          Cli        Lab          x\n";
    for (const std::vector<std::string>& option :
         {std::vector<std::string>{"-l"}, std::vector<std::string>{"-l", ""},
          std::vector<std::string>{"-L", " "}}) {
        std::vector<std::string> arguments{"-d", logs_, "-f", "out"};
        arguments.insert(arguments.end(), option.begin(), option.end());
        ExportSilently(arguments);
        EXPECT_EQ(Content("out"), kColumns + fixed);
    }
}

TEST_F(ExportCommandTest, SeparatorStandsBetweenTheFieldsWithEveryForm) {
    Write("zynlog-1.txt", Log("x"));
    const std::string delimited = "01/01/1970 00:00:00.000;    7;      1234;Mod;Cli;Lab;x\n";
    ExportSilently({"-d", logs_, "-f", "out", "-l", ";"});
    EXPECT_EQ(Content("out"), kColumns + delimited);
    ExportSilently({"-s", "logs/zynlog-1.txt", "-l", ";"});
    EXPECT_EQ(Content("EXPORT-zynlog-1.txt"), kColumns + delimited);
    ExportSilently({"-d", logs_, "-m", ".", "-l", ";"});
    EXPECT_EQ(Content("EXPORT-zynlog-1.txt"), kColumns + delimited);
}

TEST_F(ExportCommandTest, SeparatorOfMoreThanFiftyCharactersKeepsFifty) {
    Write("zynlog-1.txt", Log("x"));
    ExportSilently({"-d", logs_, "-f", "out", "-l", std::string(60, '=')});
    const std::string s(50, '=');
    EXPECT_EQ(Content("out"), kColumns + "01/01/1970 00:00:00.000" + s + "    7" + s +
                                  "      1234" + s + "Mod" + s + "Cli" + s + "Lab" + s + "x\n");
}

TEST_F(ExportCommandTest, TimesAreShownInTheLocalZone) {
    Write("zynlog-1.txt", Log("x"));
    ProgramRun run = Run({"export", "-d", logs_, "-f", "out", "-silent"});
    run.environment[0] = "TZ=IST-5:30";
    EXPECT_EQ(Finish(run).status, 0);
    EXPECT_EQ(Content("out").substr(kColumns.size(), 23), "01/01/1970 05:30:00.000");
}

TEST_F(ExportCommandTest, NamesOf255BytesAreExported) {
    const std::string name = "zynlog-" + std::string(244, 'n') + ".txt";
    Write(name, Log("long"));
    ExportSilently({"-s", "logs/" + name, "-f", std::string(255, 'o')});
    EXPECT_EQ(Content(std::string(255, 'o')), kColumns + Line("long"));
    ExpectFailure({"-s", "logs/" + name},
                  "Can not open file [OS call failed:36(File name too long)]");
}

TEST_F(ExportCommandTest, ProgressIsDrawnOverItselfOnStandardError) {
    std::string content = LogWriter::FileHeader();
    for (int i = 0; i < 3; ++i) {
        content += Block("record " + std::to_string(i)).Bytes();
    }
    Write("zynlog-1.txt", content);
    const ProgramResult result = Tool({"export", "-d", logs_, "-f", "out"});
    EXPECT_EQ(result.error,
              kToolBanner + Progress(0) + Progress(33) + Progress(66) + Progress(100));
    EXPECT_EQ(result.status, 0);
}

TEST_F(ExportCommandTest, ProgressOfAnEmptyLogIsTheInitialStateAlone) {
    EXPECT_EQ(Tool({"export", "-d", logs_, "-f"}).error, kToolBanner + Progress(0));
}

TEST_F(ExportCommandTest, ProgressStartsAgainForEveryFile) {
    WriteTwoLogs();
    EXPECT_EQ(Tool({"export", "-d", logs_, "-m"}).error,
              kToolBanner + Progress(0) + Progress(100) + Progress(0) + Progress(100));
}

TEST_F(ExportCommandTest, ManyFilesOfNoLogsDrawNothing) {
    EXPECT_EQ(Tool({"export", "-d", logs_, "-m"}).error, kToolBanner);
}

}  // namespace
