// The fixed texts at the head of the facility's files: the 256-byte note that opens a binary trace
// log, and the column header that opens a text export.
#ifndef ZYN_TRACEDATA_OUTPUTSUPPORT_H
#define ZYN_TRACEDATA_OUTPUTSUPPORT_H

#include <string>

class ZynBinaryFileOutputSupport {
  public:
    ZynBinaryFileOutputSupport() = delete;

    // Exactly 256 bytes, lines ended by CR LF. The same string on every call.
    static const std::string& GetHeader();
};

class ZynTextFileOutputSupport {
  public:
    ZynTextFileOutputSupport() = delete;

    // One line of 128 bytes, its line feed included. The same string on every call.
    static const std::string& GetHeader();
};

#endif
