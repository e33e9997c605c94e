#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <tinyxml.h>
#include <unistd.h>

#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Support/ValidationException.h"
#include "ZynConfigFileReader/ConfigProcessors.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"
#include "fixtures/DiagnosticTrace.h"
#include "testing/faults/SyslogCapture.h"
#include "testing/process/Files.h"

namespace {

using testing::IsEmpty;

using Lines = std::vector<std::string>;

// Writes down every call, in the order in which it comes.
class Recorder final : public BaseConfigProcessor {
  public:
    void SetDestination(const std::string& directory) override { Note("destination", directory); }
    void KeepDestination(const std::string& directory) override { destination = directory; }
    void SetDuplicateToDebugConsole(bool duplicate) override { Note("duplicate", Text(duplicate)); }
    void SetLogFormat(const std::string& format) override { Note("format", format); }
    void SetStatusTrace(bool enabled) override { Note("statustrace", Text(enabled)); }
    void SetNetworkSetting(NetworkMode mode) override {
        Note("network", std::to_string(static_cast<int>(mode)));
    }
    void SetServerPortNumber(unsigned int port) override { Note("port", std::to_string(port)); }
    void SetServerMaxConnection(unsigned int count) override { Note("max", std::to_string(count)); }
    void SetClientPortNumber(unsigned int port) override { Note("cport", std::to_string(port)); }
    void SetServerName(const std::string& host) override { Note("host", host); }

    void StoreTraceEnabled(bool enabled) override { Note("trace", Text(enabled)); }
    void StoreModule(const std::string& module, bool enabled) override {
        Note("module", module + "=" + Text(enabled));
    }
    void StoreClient(const std::string& module, const std::string& client, bool enabled) override {
        Note("client", module + "/" + client + "=" + Text(enabled));
    }
    void StoreLabel(const std::string& module, const std::string& client, const std::string& label,
                    bool enabled) override {
        Note("label", module + "/" + client + "/" + label + "=" + Text(enabled));
    }

    std::vector<std::string> calls;
    std::string destination;

  private:
    static std::string Text(bool value) { return value ? "1" : "0"; }
    void Note(const std::string& what, const std::string& value) {
        calls.push_back(what + " " + value);
    }
};

static_assert(DestinationKeeper<Recorder>);
static_assert(FilterKeeper<Recorder>);

// One whose functions are nearly those of the base.
class Misspelt final : public BaseConfigProcessor {
  public:
    void KeepDestinations(const std::string& /*directory*/) {}
    void StoreTraceEnabled(bool /*enabled*/) override {}
    void StoreModule(const std::string& /*module*/, bool /*enabled*/) override {}
    void StoreClients(const std::string& /*module*/, const std::string& /*client*/,
                      bool /*enabled*/) {}
    void StoreLabel(const std::string& /*module*/, const std::string& /*client*/,
                    const std::string& /*label*/, bool /*enabled*/) override {}
};
static_assert(!DestinationKeeper<Misspelt>);
static_assert(!FilterKeeper<Misspelt>);

// The steps by themselves, for what a document cannot bring about.
class Steps : public ZynConfigFileReader<Recorder> {
  public:
    using ZynConfigFileReader::GetClientInfo;
    using ZynConfigFileReader::GetLabelInfo;
    using ZynConfigFileReader::ZynConfigFileReader;
};

std::string TextOf(const std::exception_ptr& failure) {
    if (!failure) {
        return "none";
    }
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& caught) {
        return caught.what();
    }
}

constexpr std::string_view kSizes =
    "size='1' maxbackups='2' preserve_size='3' preserve_maxbackups='4'";

std::string LogFile(std::string_view more = "") {
    return "<Logfile path='/var/log' " + std::string(kSizes) + " " + std::string(more) + "/>";
}

class ConfigFileReader : public testing::Test {
  protected:
    template <typename Reader>
    void ReadInto(Reader& reader, const std::string& document) {
        const std::string path = directory_ / "ZynConfigLinux.xml";
        WriteFile(path, document);
        reader.Read(path);
    }
    // The calls without the master switch, for a document of these elements below the root.
    std::vector<std::string> CallsOf(const std::string& elements) {
        recorder_.calls.clear();
        ReadInto(reader_, "<?xml version='1.0'?><ZYNConfig trace='1'>" + elements + "</ZYNConfig>");
        std::vector<std::string> calls = recorder_.calls;
        EXPECT_FALSE(calls.empty());
        EXPECT_EQ(calls.front(), "trace 1");
        calls.erase(calls.begin());
        return calls;
    }
    std::string ReadFailure(const std::string& elements) {
        CallsOf(elements);
        return TextOf(reader_.Failure());
    }

    TempDirectory directory_;
    RunDirectory run_;
    Recorder recorder_;
    ZynConfigFileReader<Recorder> reader_{recorder_};
};

TEST_F(ConfigFileReader, EverySettingReachesTheProcessorInOrder) {
    EXPECT_THAT(
        CallsOf(LogFile("duplicate_to_debug_console='1' log_format='binary'") +
                "<StatusTrace state='on'/><Network mode='server'/>"
                "<Server port_number='10x' max_connection='7'/>"
                "<Client port_number='11' server_name='far'/>"
                "<Global><GLabel name='l' state='1'/><GClient name='c' state='1'>"
                "<GClientLabel name='cl' state='0'/><MClientLabel name='no' state='1'/></GClient>"
                "<Other/></Global>"
                "<Module name='m' state='1'><MLabel name='ml' state='1'/>"
                "<MClient name='mc' state='1'><MClientLabel name='mcl' state='1'/></MClient>"
                "</Module><Module name='n' state='0'/>"),
        (Lines{"duplicate 1", "format binary", "statustrace 1", "network 0", "port 10", "max 7",
               "cport 11", "host far", "label //l=1", "client /c=1", "label /c/cl=0", "module m=1",
               "label m//ml=1", "client m/mc=1", "label m/mc/mcl=1", "module n=0"}));
    EXPECT_EQ(TextOf(reader_.Failure()), "none");
    EXPECT_TRUE(reader_.Loaded());
    EXPECT_EQ(reader_.LogPath(), "/var/log");
    EXPECT_EQ(recorder_.destination, "/var/log");
}

TEST_F(ConfigFileReader, OptionalAttributesHaveDefaults) {
    EXPECT_THAT(CallsOf(LogFile() + "<StatusTrace/><Network/><Server/><Client server_name='s'/>"
                                    "<Global/>"),
                (Lines{"format text", "statustrace 1", "network 2", "port 3456", "max 1",
                       "cport 3456", "host s"}));
}

TEST_F(ConfigFileReader, AbsentOptionalElementsCallNothing) {
    EXPECT_THAT(CallsOf(LogFile() + "<Global/>"), (Lines{"format text"}));
}

TEST_F(ConfigFileReader, BooleansAreTrueOnlyForTheirExactText) {
    EXPECT_THAT(CallsOf(LogFile("duplicate_to_debug_console='on'") +
                        "<StatusTrace state='1'/><Network mode='client'/>"
                        "<Global><GLabel name='a' state='on'/><GLabel name='b' state='1 '/>"
                        "<GLabel name='c' state='true'/></Global>"),
                (Lines{"duplicate 0", "format text", "statustrace 0", "network 1", "label //a=0",
                       "label //b=0", "label //c=0"}));
}

TEST_F(ConfigFileReader, LogFormatInCapitalsIsText) {
    EXPECT_THAT(CallsOf(LogFile("log_format='BINARY'") + "<Global/>"), (Lines{"format text"}));
}

TEST_F(ConfigFileReader, TraceOffAppliesNothingElse) {
    for (const std::string_view value : {"0", "on", "", "1 ", "2"}) {
        recorder_.calls.clear();
        ReadInto(reader_, "<ZYNConfig trace='" + std::string(value) + "'>" + LogFile() +
                              "<Global/></ZYNConfig>");
        EXPECT_THAT(recorder_.calls, (Lines{"trace 0"})) << value;
        EXPECT_EQ(TextOf(reader_.Failure()), "none");
        EXPECT_EQ(reader_.LogPath(), "");
        EXPECT_TRUE(reader_.Loaded());
    }
}

TEST_F(ConfigFileReader, RootOrItsTraceMissing) {
    for (const std::string_view document :
         {"<Other trace='1'/>", "<zynconfig trace='1'/>", "<ZYNConfig Trace='1'/>"}) {
        ReadInto(reader_, std::string(document));
        EXPECT_EQ(TextOf(reader_.Failure()), "Bad parameter:Invalid Attribute") << document;
        EXPECT_TRUE(reader_.Loaded());
    }
    EXPECT_THAT(recorder_.calls, IsEmpty());
}

TEST_F(ConfigFileReader, LogfileMissingEndsTheReading) {
    EXPECT_THAT(CallsOf("<StatusTrace/><Global><GLabel name='l' state='1'/></Global>"), IsEmpty());
    EXPECT_EQ(TextOf(reader_.Failure()), "Bad parameter:error:Logfile configuation invalid");
}

TEST_F(ConfigFileReader, EachLogfileAttributeIsRequired) {
    EXPECT_EQ(ReadFailure("<Logfile/><Global/>"), "Bad logic:error: Invalid path ");
    EXPECT_EQ(ReadFailure("<Logfile path='p'/><Global/>"), "Bad logic:Error: invalid size");
    EXPECT_EQ(ReadFailure("<Logfile path='p' size=''/><Global/>"),
              "Bad logic:Error: invalid maxbackups ");
    EXPECT_EQ(ReadFailure("<Logfile path='p' size='' maxbackups=''/><Global/>"),
              "Bad logic:Error: invalid preserve_size");
    EXPECT_EQ(ReadFailure("<Logfile path='p' size='' maxbackups='' preserve_size=''/><Global/>"),
              "Bad logic:Error: invalid preserve_maxbackups");
}

TEST_F(ConfigFileReader, LogfileWithoutSizeKeepsItsPathAndTheRestIsApplied) {
    const RunDirectory run(true);
    EXPECT_THAT(CallsOf("<Logfile path='/kept' duplicate_to_debug_console='1'/>"
                        "<StatusTrace state='on'/><Global><GLabel name='l' state='1'/></Global>"
                        "<Module name='m' state='1'/>"),
                (Lines{"statustrace 1", "label //l=1", "module m=1"}));
    EXPECT_EQ(reader_.LogPath(), "/kept");
    EXPECT_EQ(recorder_.destination, "/kept");
    EXPECT_THAT(run.OwnTrace(), (Lines{"Error while GetLogFileInfo", "Status tracing is enabled"}));
}

TEST_F(ConfigFileReader, TheFirstFailureIsKept) {
    EXPECT_EQ(ReadFailure("<Logfile/>"), "Bad logic:error: Invalid path ");
    EXPECT_EQ(ReadFailure(LogFile()), "Bad logic:Error: invalid element");
    EXPECT_EQ(ReadFailure(LogFile() + "<Global/>"), "none") << "left over from the last Read";
}

TEST_F(ConfigFileReader, StatusTraceBeforeLogfileIsNotFound) {
    EXPECT_THAT(CallsOf("<StatusTrace state='on'/>" + LogFile() + "<Global/>"),
                (Lines{"format text"}));
}

TEST_F(ConfigFileReader, ElementsOutOfOrderAreNotFound) {
    EXPECT_THAT(CallsOf(LogFile() + "<Server/><Network mode='server'/><Global/>"),
                (Lines{"format text", "network 0"}));
    EXPECT_THAT(CallsOf("<Module name='early' state='1'/>" + LogFile() +
                        "<Global/><Module name='m' state='1'/><Network/><Module name='n' "
                        "state='1'/>"),
                (Lines{"format text", "network 2"}));
    EXPECT_EQ(TextOf(reader_.Failure()), "Bad logic:Error: invalid element")
        << "the search went on from Network, past Global";
}

TEST_F(ConfigFileReader, TheFirstLogfileCounts) {
    CallsOf("<Logfile path='one' " + std::string(kSizes) + "/><Logfile path='two' " +
            std::string(kSizes) + "/><Global/>");
    EXPECT_EQ(reader_.LogPath(), "one");
}

TEST_F(ConfigFileReader, ClientWithoutServerNameEndsTheReading) {
    EXPECT_THAT(CallsOf(LogFile() + "<Client port_number='5'/>"
                                    "<Global><GLabel name='l' state='1'/></Global>"
                                    "<Module name='m' state='1'/>"),
                (Lines{"format text", "cport 5"}));
    EXPECT_EQ(TextOf(reader_.Failure()), "Bad logic:Error: no valid hostname is specified");
}

TEST_F(ConfigFileReader, GlobalMissing) {
    EXPECT_EQ(ReadFailure(LogFile() + "<Module name='m' state='1'/>"),
              "Bad logic:Error: invalid element");
}

TEST_F(ConfigFileReader, NameAndStateAreRequiredEverywhere) {
    constexpr std::string_view kName = "Bad logic:Error: invalid Attribute \"name\" ";
    constexpr std::string_view kState = "Bad logic:Error: invalid Attribute \"state\" ";
    const auto global = [](const std::string& inner) {
        return LogFile() + "<Global>" + inner + "</Global>";
    };
    const auto module = [](const std::string& inner) {
        return LogFile() + "<Global/><Module name='m' state='1'>" + inner + "</Module>";
    };
    EXPECT_EQ(ReadFailure(global("<GLabel state='1'/>")), kName);
    EXPECT_EQ(ReadFailure(global("<GLabel name='l'/>")), kState);
    EXPECT_EQ(ReadFailure(global("<GClient state='1'/>")), kName);
    EXPECT_EQ(ReadFailure(global("<GClient name='c'/>")), kState);
    EXPECT_EQ(ReadFailure(global("<GClient name='c' state='1'><GClientLabel/></GClient>")), kName);
    EXPECT_EQ(ReadFailure(LogFile() + "<Global/><Module state='1'/>"), kName);
    EXPECT_EQ(ReadFailure(LogFile() + "<Global/><Module name='m'/>"), kState);
    EXPECT_EQ(ReadFailure(module("<MLabel state='1'/>")), kName);
    EXPECT_EQ(ReadFailure(module("<MClient name='c'/>")), kState);
    EXPECT_EQ(ReadFailure(module("<MClient name='c' state='1'><MClientLabel name='l'/></MClient>")),
              kState);
}

TEST_F(ConfigFileReader, ChildrenOfWhatIsOffAreIgnoredEvenWhenFaulty) {
    EXPECT_THAT(CallsOf(LogFile() + "<Global><GClient name='c' state='0'><GClientLabel/></GClient>"
                                    "</Global><Module name='m' state='0'>"
                                    "<MLabel name='l' state='1'/><MClient/></Module>"),
                (Lines{"format text", "client /c=0", "module m=0"}));
    EXPECT_EQ(TextOf(reader_.Failure()), "none");
}

TEST_F(ConfigFileReader, OnlyElementsAreWalked) {
    EXPECT_THAT(CallsOf("text<!-- <Logfile path='no'/> -->" + LogFile() +
                        "text<!-- --><Global>text<!-- <GLabel/> --><![CDATA[<GLabel/>]]>"
                        "<GLabel name='l' state='1'>text</GLabel></Global><!-- -->tail"
                        "<Module name='m' state='1'>text<!-- --></Module>"),
                (Lines{"format text", "label //l=1", "module m=1"}));
    EXPECT_EQ(TextOf(reader_.Failure()), "none");
}

TEST_F(ConfigFileReader, ClientStepWithoutLabelElementName) {
    Steps steps(recorder_);
    TiXmlElement client("GClient");
    client.SetAttribute("name", "c");
    client.SetAttribute("state", "1");
    try {
        steps.GetClientInfo(&client, "", "");
        FAIL() << "accepted";
    } catch (const ExtendedException<std::logic_error>& failure) {
        EXPECT_STREQ(failure.what(), "Bad parameter:Error: Invalid lable type");
        EXPECT_EQ(failure.file, "src/ZynConfigFileReader/ConfigFileWalk.cpp");
    }
    EXPECT_THAT(recorder_.calls, (Lines{"client /c=1"}));
}

TEST_F(ConfigFileReader, LabelStepNeedsAnElement) {
    Steps steps(recorder_);
    TiXmlComment comment("no element");
    try {
        steps.GetLabelInfo(&comment, "", "");
        FAIL() << "accepted";
    } catch (const std::logic_error& failure) {
        EXPECT_STREQ(failure.what(), "Bad logic:Error: invalid element");
    }
}

TEST_F(ConfigFileReader, UnreadablePathsAreLoadFailuresOnRecord) {
    const std::string fifo = directory_ / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {directory_ / "missing", directory_.Path(), fifo,
                                    std::string("/dev/zero"), std::string()}) {
        const SyslogCapture capture;
        reader_.Read(path);
        EXPECT_FALSE(reader_.Loaded()) << path;
        EXPECT_EQ(TextOf(reader_.Failure()), "Bad logic:Failed to open file") << path;
        const std::vector<SyslogRecord> records = SyslogCapture::Take();
        ASSERT_EQ(records.size(), 1U) << path;
        EXPECT_EQ(records[0].ident, "ZynServer");
        EXPECT_EQ(records[0].priority, LOG_ERR);
        EXPECT_EQ(records[0].text, "Failed to open file");
    }
    EXPECT_THAT(recorder_.calls, IsEmpty());
}

TEST_F(ConfigFileReader, BrokenDocumentIsALoadFailureWithTheParsersDescription) {
    const RunDirectory run(true);
    const SyslogCapture capture;
    ReadInto(reader_, "<ZYNConfig trace='1'><Logfile></ZYNConfig>");
    EXPECT_FALSE(reader_.Loaded());
    EXPECT_EQ(TextOf(reader_.Failure()), "Bad logic:Error reading end tag.");
    const std::vector<SyslogRecord> records = SyslogCapture::Take();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "Error reading end tag.");
    EXPECT_THAT(run.OwnTrace(), (Lines{"Error reading end tag."}));
    EXPECT_THAT(recorder_.calls, IsEmpty());
}

TEST_F(ConfigFileReader, EmptyFileIsALoadFailure) {
    ReadInto(reader_, "");
    EXPECT_FALSE(reader_.Loaded());
    EXPECT_EQ(TextOf(reader_.Failure()), "Bad logic:Error document empty.");
}

TEST_F(ConfigFileReader, DeepDocumentIsALoadFailure) {
    std::string document = "<ZYNConfig trace='1'>" + LogFile() + "<Global/>";
    for (int i = 0; i < 2'000'000; ++i) {
        document += "<a>";
    }
    ReadInto(reader_, document);
    EXPECT_FALSE(reader_.Loaded());
    EXPECT_EQ(TextOf(reader_.Failure()), "Bad logic:Document is nested too deeply");
}

TEST_F(ConfigFileReader, HugeFileIsALoadFailureBeforeItIsRead) {
    const std::string path = directory_ / "huge.xml";
    WriteFile(path, "<ZYNConfig trace='1'/>");
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 40U), 0);
    reader_.Read(path);
    EXPECT_FALSE(reader_.Loaded());
    EXPECT_EQ(TextOf(reader_.Failure()), "Bad logic:Document is too large");
}

TEST_F(ConfigFileReader, FailureWithoutDescriptionSendsNoRecordButWritesTheEmptyLine) {
    const RunDirectory run(true);
    const SyslogCapture capture;
    ReadInto(reader_, "<ZYNConfig/>");
    EXPECT_TRUE(reader_.Loaded());
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
    EXPECT_THAT(run.OwnTrace(), (Lines{""}));
}

TEST_F(ConfigFileReader, DiagnosticLinesOfTheSettings) {
    const auto linesOf = [this](const std::string& elements) {
        const RunDirectory run(true);
        CallsOf(elements + "<Global/>");
        return run.Trace();
    };
    EXPECT_THAT(linesOf(LogFile("log_format='binary'")),
                (Lines{"ZynConfig setting : Log Format is set as BIANRY"}));
    EXPECT_THAT(linesOf(LogFile("log_format='x'")),
                (Lines{"ZynConfig setting : Log Format is set as TEXT "}));
    EXPECT_THAT(linesOf(LogFile()), IsEmpty());
    EXPECT_THAT(linesOf(LogFile() + "<StatusTrace/>"),
                (Lines{"Status tracing is enabled as default"}));
    EXPECT_THAT(linesOf(LogFile() + "<StatusTrace state='off'/>"), IsEmpty());
}

TEST_F(ConfigFileReader, ToolProcessorExposesTheDestinationAlone) {
    MyConfigProcessor processor;
    ZynConfigFileReader<MyConfigProcessor> reader(processor);
    ReadInto(reader, "<ZYNConfig trace='1'>" +
                         LogFile("log_format='binary' duplicate_to_debug_console='1'") +
                         "<Network mode='server'/><Server/><Client server_name='s'/>"
                         "<Global><GLabel name='l' state='1'/></Global>"
                         "<Module name='m' state='1'/></ZYNConfig>");
    EXPECT_EQ(processor.Destination(), "/var/log");
    EXPECT_EQ(reader.LogPath(), "/var/log");
    EXPECT_EQ(TextOf(reader.Failure()), "none");
    static_cast<BaseConfigProcessor&>(processor).SetDestination("/elsewhere");
    EXPECT_EQ(processor.Destination(), "/var/log")
        << "the setter is the base's, which keeps nothing";
}

TEST_F(ConfigFileReader, ToolReaderChecksWhatItDoesNotStore) {
    MyConfigProcessor processor;
    ZynConfigFileReader<MyConfigProcessor> reader(processor);
    ReadInto(reader, "<ZYNConfig trace='1'>" + LogFile() +
                         "<Global/><Module name='m' state='1'><MLabel state='1'/></Module>"
                         "</ZYNConfig>");
    EXPECT_EQ(TextOf(reader.Failure()), "Bad logic:Error: invalid Attribute \"name\" ");
    EXPECT_EQ(processor.Destination(), "/var/log");
}

// What a processor throws that is no failed check is swallowed in silence, and kept.
TEST_F(ConfigFileReader, ForeignExceptionIsSwallowedSilently) {
    class Thrower final : public BaseConfigProcessor {
      public:
        void SetStatusTrace(bool /*enabled*/) override { throw std::bad_alloc(); }
    };
    const SyslogCapture capture;
    Thrower thrower;
    ZynConfigFileReader<Thrower> reader(thrower);
    ReadInto(reader, "<ZYNConfig trace='1'>" + LogFile() + "<StatusTrace/></ZYNConfig>");
    EXPECT_THROW(std::rethrow_exception(reader.Failure()), std::bad_alloc);
    EXPECT_THAT(SyslogCapture::Take(), IsEmpty());
}

}  // namespace
