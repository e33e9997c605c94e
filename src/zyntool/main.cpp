// The entry point: banner, one processor per command word, and the report of what went wrong.

#include <csignal>
#include <exception>
#include <iostream>

#include "CommandProcess/CmdProcess.h"
#include "Support/LostPages.h"
#include "Support/WantOfMemory.h"
#include "zyntool/CleanCommandProcessor.h"
#include "zyntool/ControlCommandProcessors.h"
#include "zyntool/ExportCommandProcessor.h"
#include "zyntool/PerformanceCommandProcessor.h"
#include "zyntool/Report.h"
#include "zyntool/TestCommandProcessor.h"

int main(int argc, char** argv) {
    // A closed pipe and a file at its size limit are failed writes, which are reported; the signals
    // would end the program silently.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    // The same for a shared region that another program truncates: the command fails when no answer
    // comes.
    lostpages::Replace();
    EndWithoutMemory("Operation failed.\nError description:std::bad_alloc\n", 255);
    PrintBanner(std::cerr);
    ExportCommandProcessor exportProcessor;
    PreservationCommandProcessor preservationProcessor;
    PauseCommandProcessor pauseProcessor;
    ReloadCommandProcessor reloadProcessor;
    ResumeCommandProcessor resumeProcessor;
    PerformanceCommandProcessor performanceProcessor;
    CleanCommandProcessor cleanProcessor;
    TestCommandProcessor testProcessor;
    try {
        CommandLineParser parser;
        parser.Add("export", &exportProcessor);
        parser.Add("preservation", &preservationProcessor);
        parser.Add("pause", &pauseProcessor);
        parser.Add("reload", &reloadProcessor);
        parser.Add("resume", &resumeProcessor);
        parser.Add("performance", &performanceProcessor);
        parser.Add("clean", &cleanProcessor);
        parser.Add("test", &testProcessor);
        // A caller may pass no arguments at all, not even the program's name.
        const unsigned int count = argc > 0 ? static_cast<unsigned int>(argc - 1) : 0;
        parser.Process(count, count != 0 ? const_cast<const char**>(argv + 1) : nullptr);
        return 0;
    } catch (const CommandLineParser::SyntaxException& fault) {
        PrintUsage(std::cerr, fault.what());
    } catch (const std::exception& failure) {
        PrintFailure(std::cerr, failure.what());
    }
    return -1;
}
