#ifndef ZYN_TESTS_SUPPORT_STANDINSERVICEFIXTURE_H
#define ZYN_TESTS_SUPPORT_STANDINSERVICEFIXTURE_H

// What the tests of the stand-in service share: a client that is nothing but two rings in files,
// and the bytes that it is to be sent.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/StandInService.h"

namespace standin {

// Speaks as a client does: resets the server ring, appends, reads its own ring.
class FakeClient {
  public:
    FakeClient(const TempDirectory& directory, std::uint32_t processId)
        : processId_(processId),
          path_(directory / ClientRegionFile(processId)),
          own_(MappedFile::Create(path_, kMessageRegionBytes)),
          server_(MappedFile::Open(directory / kServerRegionFile)) {
        Own().Initialise();
    }
    FakeClient(const FakeClient&) = delete;
    FakeClient& operator=(const FakeClient&) = delete;
    ~FakeClient() { ::unlink(path_.c_str()); }

    [[nodiscard]] Ring Own() const { return Ring(own_.Data()); }
    [[nodiscard]] Ring Server() const { return Ring(server_.Data()); }

    void Send(const Bytes& frame) const {
        Server().Initialise();
        ASSERT_TRUE(Server().Append(frame));
    }
    void Register() const { Send(MessageFrame(RegistrationRecord(processId_, kActionRegister))); }
    void Unregister() const {
        Send(MessageFrame(RegistrationRecord(processId_, kActionUnregister)));
    }
    void Request(std::uint32_t code) const { Send(MessageFrame(ChangeRecord(processId_, code))); }

    // All bytes in the own ring, which is then empty.
    [[nodiscard]] Bytes Receive() const {
        const RingPositions positions = Own().Positions();
        Bytes bytes = Own().Copy(positions);
        Own().SetPositions({.read = positions.write, .write = positions.write});
        return bytes;
    }

  private:
    std::uint32_t processId_;
    std::string path_;
    MappedFile own_;
    MappedFile server_;
};

inline Bytes Confirmation(std::uint8_t pid) { return {0x0A, 8, 0, 0, 0, pid, 0, 0, 0, 3, 0, 0, 0}; }

inline Bytes OrderBytes(std::uint8_t requester, std::uint8_t code) {
    return {0x0A, 16, 0, 0, 0, requester, 0, 0, 0, 2, 0, 0, 0, code, 0, 0, 0, 0, 0, 0, 0};
}

inline Bytes Joined(const Bytes& first, const Bytes& second) {
    Bytes both = first;
    both.insert(both.end(), second.begin(), second.end());
    return both;
}

// A service that is up, and its client of the id 7.
struct Served {
    Served(const ServiceOptions& options, const TempDirectory& directory)
        : service(options), client([this, &directory] {
              service.Open();
              return FakeClient(directory, 7);
          }()) {}

    StandInService service;
    FakeClient client;
};

class StandInServiceTest : public ::testing::Test {
  protected:
    [[nodiscard]] ServiceOptions Options() const {
        ServiceOptions options;
        options.runDirectory = directory_.Path();
        return options;
    }
    [[nodiscard]] Served Serve(const ServiceOptions& options) const {
        return {options, directory_};
    }
    [[nodiscard]] static std::vector<std::string> Texts(const StandInService& service) {
        std::vector<std::string> texts;
        for (const ServiceEvent& event : service.Events()) {
            texts.push_back(event.text);
        }
        return texts;
    }
    [[nodiscard]] bool Exists(const char* name) const {
        return std::filesystem::exists(directory_ / name);
    }
    // What comes before `end`, however many steps it needs.
    static Bytes Until(StandInService& service, const FakeClient& client, const Bytes& end) {
        Bytes received;
        for (int step = 0; step < 1000; ++step) {
            service.Step();
            received = Joined(received, client.Receive());
            if (received.size() >= end.size() &&
                std::equal(end.rbegin(), end.rend(), received.rbegin())) {
                received.resize(received.size() - end.size());
                return received;
            }
        }
        ADD_FAILURE() << "the awaited bytes did not come";
        return received;
    }

    TempDirectory directory_;
};

}  // namespace standin

#endif  // ZYN_TESTS_SUPPORT_STANDINSERVICEFIXTURE_H
