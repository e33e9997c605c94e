// What the readers of a log find wrong with its bytes. They report it and do not throw; RaiseDamage
// (TracePacket.h) makes of it the failures that a user of the export knows.
#ifndef ZYN_TRACEDATA_DAMAGE_H
#define ZYN_TRACEDATA_DAMAGE_H

#include <cstdint>

enum class Damage : std::uint8_t {
    kNone,
    // A packet, record or block runs past the end of the record, block or log that holds it.
    kCutOff,
    // Where a record or block should begin is no packet of its header's length.
    kNoHeader,
};

#endif
