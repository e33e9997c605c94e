// The packets to which this program gives a meaning.
#ifndef ZYN_TRACEDATA_PACKETIDS_H
#define ZYN_TRACEDATA_PACKETIDS_H

#include <array>
#include <cstdint>
#include <string_view>

// Ids of 32-bit value packets without the value flag.
inline constexpr std::uint16_t kThreadPacketId = 3;
inline constexpr std::uint16_t kProcessPacketId = 4;
// Ids of binary packets.
inline constexpr std::uint16_t kTimePacketId = 2;
inline constexpr std::uint16_t kControlPacketId = 6;
// Ids of string packets.
inline constexpr std::uint16_t kMessagePacketId = 0;
inline constexpr std::uint16_t kModulePacketId = 32;
inline constexpr std::uint16_t kClientPacketId = 33;
inline constexpr std::uint16_t kLabelPacketId = 34;

// Seconds, milliseconds and a third word of 4 bytes each.
inline constexpr std::uint32_t kTimePacketBytes = 12;
// Control code and process id of the sender.
inline constexpr std::uint32_t kControlPacketBytes = 8;

// What a control code means, for codes 1 to 7; empty for all others.
// Kept as is: "Pauseed" and "Resumeed" are part of the output format.
[[nodiscard]] constexpr std::string_view ControlText(std::uint32_t code) noexcept {
    constexpr std::array<std::string_view, 8> kTexts{"",
                                                     "Client attached",
                                                     "Client detached",
                                                     "Pauseed tracing",
                                                     "Resumeed tracing",
                                                     "Reloaded configuration",
                                                     "Turned on preservation",
                                                     "Turned off preservation"};
    return code < kTexts.size() ? kTexts[code] : std::string_view{};
}

#endif
