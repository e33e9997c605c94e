// A file as the system knows it, whatever it is called.
#ifndef ZYN_SUPPORT_FILEIDENTITY_H
#define ZYN_SUPPORT_FILEIDENTITY_H

#include <sys/types.h>

#include <compare>

struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    friend auto operator<=>(const FileIdentity&, const FileIdentity&) = default;
};

#endif
