#ifndef ZYN_TESTS_TRACESERVICE_MESSAGES_H
#define ZYN_TESTS_TRACESERVICE_MESSAGES_H

// What the tests of sending, of receiving and of a client share: the service's ring, and a handler
// that keeps what it is handed.

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "TraceService/MessageRecords.h"
#include "fixtures/DiagnosticTrace.h"
#include "fixtures/RegionFile.h"

inline std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

// A run directory with the service's ring in it.
class ServerRing {
  public:
    explicit ServerRing(bool diagnostic = false) : run_(diagnostic) {
        WriteFile(run_ / "ZynServerMessageBuffer.map", std::string(524, '\0'));
        file_.emplace(run_ / "ZynServerMessageBuffer.map");
    }
    [[nodiscard]] const RunDirectory& Run() const { return run_; }
    [[nodiscard]] const RegionFile& File() const { return *file_; }
    // What the last sender has written.
    [[nodiscard]] std::string Sent() const {
        return file_->Bytes(RegionFile::kData, file_->Word(RegionFile::kWrite));
    }

  private:
    RunDirectory run_;
    std::optional<RegionFile> file_;
};

// Keeps what it is handed.
struct MessageRecorder {
    std::vector<MessageHeader> headers;
    std::vector<std::uint32_t> changes;
    bool fail = false;

    void Handle(const MessageHeader* header) {
        headers.push_back(*header);
        if (header->type == MessageType::kRuntimeConfigurationChange) {
            MessageRuntimeConfigurationChange record{};
            std::memcpy(&record, header, kChangeBytesRead);
            changes.push_back(static_cast<std::uint32_t>(record.change));
        }
        if (fail) {
            throw std::runtime_error("handler");
        }
    }
    [[nodiscard]] std::vector<std::uint32_t> Types() const {
        std::vector<std::uint32_t> types;
        for (const MessageHeader& header : headers) {
            types.push_back(static_cast<std::uint32_t>(header.type));
        }
        return types;
    }
};

inline const std::string kConfirmation = RegionFile::Frame(7, 3);

#endif
