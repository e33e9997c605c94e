// The column header that opens a text export.
#ifndef ZYN_TRACEDATA_TEXT_OUTPUTSUPPORT_H
#define ZYN_TRACEDATA_TEXT_OUTPUTSUPPORT_H

#include <string>

class ZynTextFileOutputSupport {
  public:
    ZynTextFileOutputSupport() = delete;

    // One line of 128 bytes, its line feed included. The same string on every call.
    static const std::string& GetHeader();
};

#endif
