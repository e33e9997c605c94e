#ifndef ZYN_TESTS_TRACEDATA_PACKETRECORDER_H
#define ZYN_TESTS_TRACEDATA_PACKETRECORDER_H

// A client of the packet and block readers that writes down, as text, what it gets.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/DecodedRecord.h"
#include "TraceData/TracePacket.h"

struct PacketRecorder {
    void OnRead(std::string_view text, std::uint16_t id) {
        events.push_back("string " + std::to_string(id) + " " + std::string(text));
    }
    void OnThread(std::uint32_t value) { events.push_back("thread " + std::to_string(value)); }
    void OnProcess(std::uint32_t value) { events.push_back("process " + std::to_string(value)); }
    void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) {
        events.push_back("time " + std::to_string(seconds) + " " + std::to_string(milliseconds));
    }
    void OnControl(std::uint32_t code, std::uint32_t process) {
        events.push_back("control " + std::to_string(code) + " " + std::to_string(process));
    }
    void OnBlock(std::uint64_t read, std::uint64_t total) {
        events.push_back("block " + std::to_string(read) + "/" + std::to_string(total));
    }
    void OnRecord(const DecodedRecord& record);

    std::vector<std::string> events;
};

using Events = std::vector<std::string>;

// Reads the packets of one record; raises their damage. The bytes are copied to a place of exactly
// their size, so that a sanitizer sees a read beyond them.
inline void ReadPackets(std::string_view bytes, PacketRecorder& recorder) {
    const std::vector<char> exact(bytes.begin(), bytes.end());
    TracePacketReader packets(exact.data(), static_cast<std::uint32_t>(exact.size()));
    TracePacket packet;
    while (packets.Next(packet)) {
        DispatchPacket(packet, recorder);
    }
    if (packets.FoundDamage() != Damage::kNone) {
        RaiseDamage(packets.FoundDamage());
    }
}

inline void PacketRecorder::OnRecord(const DecodedRecord& record) {
    events.emplace_back("begin");
    ReadPackets({record.data, record.length}, *this);
    events.emplace_back("end");
}

inline Events PacketEvents(std::string_view bytes) {
    PacketRecorder recorder;
    ReadPackets(bytes, recorder);
    return recorder.events;
}

#endif
