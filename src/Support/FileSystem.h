// Directory listing.
#ifndef ZYN_SUPPORT_FILESYSTEM_H
#define ZYN_SUPPORT_FILESYSTEM_H

#include <string>
#include <vector>

class CFileSystem {
  public:
    CFileSystem() = delete;

    // Appends to names the name of every entry of directory that begins with prefix and contains
    // part anywhere, in the order in which the system lists them. A directory that cannot be opened
    // adds nothing and is no error. Only the name decides: a matching directory or FIFO is listed.
    // Throws CheckOSCall "Can not read directory" when the listing breaks off midway.
    static void FindAllFiles(const std::string& directory, const std::string& prefix,
                             const std::string& part, std::vector<std::string>& names);
};

#endif
