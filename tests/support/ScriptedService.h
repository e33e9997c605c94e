#ifndef ZYN_TESTS_SUPPORT_SCRIPTEDSERVICE_H
#define ZYN_TESTS_SUPPORT_SCRIPTEDSERVICE_H

// The tracing service as a test plays it, one step at a time on the test's own thread: its files in
// a run directory, what was sent to it, and what it puts into this process's ring.

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/DiagnosticTrace.h"
#include "support/RegionFile.h"

class ScriptedService {
  public:
    explicit ScriptedService(const RunDirectory& run) : run_(run) {
        WriteFile(run_ / "ZynServerMessageBuffer.map", std::string(524, '\0'));
        WriteFile(run_ / "ZynRecordSequenceNumberSeed.map", std::string(4, '\0'));
        file_.emplace(run_ / "ZynServerMessageBuffer.map");
    }

    // Makes the service one that a monitor finds.
    void Announce(const std::string& pidText) const {
        WriteFile(run_ / "ZynService.pid", pidText);
        WriteFile(run_ / "ZynService.lck", "");
    }

    // What the last sender has written.
    [[nodiscard]] std::string Sent() const {
        return file_->Bytes(RegionFile::kData, file_->Word(RegionFile::kWrite));
    }

    static std::string Registration() { return RegionFile::Frame(::getpid(), 1, 0); }
    static std::string Unregistration() { return RegionFile::Frame(::getpid(), 1, 2); }
    static std::string Request(std::uint32_t change) {
        return RegionFile::Frame(::getpid(), 2, change, 0);
    }
    static std::string Order(std::uint32_t change) { return RegionFile::Frame(1, 2, change, 0); }
    static std::string Confirmation() { return RegionFile::Frame(1, 3); }
    static std::string Ping() { return RegionFile::Frame(1, 4); }

    // Into this process's ring.
    void Put(const std::string& bytes) const { RegionFile(ClientRegion()).Append(bytes); }

    // As Put, and waits until the client has handled all of it: a ping stands behind it, and a
    // frame is not begun before the one in front of it is done.
    void Deliver(const std::string& bytes) const {
        const RegionFile ring(ClientRegion());
        ring.Append(bytes + Ping());
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (ring.Word(RegionFile::kRead) != ring.Word(RegionFile::kWrite)) {
            if (std::chrono::steady_clock::now() > end) {
                throw std::runtime_error("the client does not read its ring");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    [[nodiscard]] std::string ClientRegion() const {
        return run_ / ("ZynServerMessageBuffer" + std::to_string(::getpid()) + ".map");
    }
    [[nodiscard]] std::string TraceRegion() const {
        return run_ / ("ZynTraceBuffer" + std::to_string(::getpid()) + ".map");
    }
    // Whether this process has left a region or its lock behind.
    [[nodiscard]] bool ClientFilesExist() const {
        return std::filesystem::exists(ClientRegion()) || std::filesystem::exists(TraceRegion()) ||
               std::filesystem::exists(run_ / "ZynServerMessageLock.lck");
    }

  private:
    const RunDirectory& run_;
    std::optional<RegionFile> file_;
};

#endif
