// Files of the run directory, in which any user who may trace can put what he likes: a link to
// another file, a second name of one, a pipe that nobody reads. All files there are opened here.
#ifndef ZYN_SUPPORT_RUNFILE_H
#define ZYN_SUPPORT_RUNFILE_H

#include <fcntl.h>
#include <sys/types.h>

#include <string>

#include "Support/FileDescriptor.h"

namespace runfile {

// "<run directory><name>", by the environment as it is now.
[[nodiscard]] std::string PathOf(const std::string& name);

// Opens a regular file, with flags as open(2) has them, and mode exactly, whatever the umask, when
// O_CREAT creates it. Follows no link in the last part of path and waits for nobody but the holder
// of a lease, for 2 s at most. With O_TRUNC or O_APPEND, which change what others may have put
// there, path must be the file's only name, and the file is looked at before it is emptied.
//
// Not open when that fails, with errno as open(2) sets it (ELOOP for a link, EWOULDBLOCK for a
// lease), EINVAL for what is no regular file, or EMLINK for a file that has another name.
[[nodiscard]] FileDescriptor Open(const std::string& path, int flags, mode_t mode = 0);

}  // namespace runfile

#endif
