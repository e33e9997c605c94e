// The tag by which a support engineer finds the program's version in the binary.
#ifndef ZYN_ZYNTOOL_VERSION_H
#define ZYN_ZYNTOOL_VERSION_H

extern const char* const VERSION_TAG_SUBSYSTEM;

const char* ReturnVersion();

#endif
