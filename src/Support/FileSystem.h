// Directory listing.
#ifndef ZYN_SUPPORT_FILESYSTEM_H
#define ZYN_SUPPORT_FILESYSTEM_H

#include <cstdint>
#include <ctime>
#include <span>
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

// The entries of a directory that FindAllFiles finds, in the bytewise order of their names, for
// callers that list them often: the directory is read anew only when its time of change has moved.
// One thread.
class DirectoryListing {
  public:
    DirectoryListing(std::string directory, std::string prefix, std::string part);

    // Valid until the next call. Throws as FindAllFiles does.
    const std::vector<std::string>& Names();

    // The names that begin with a prefix of their own, among what Names() would return.
    std::span<const std::string> NamesWithPrefix(const std::string& prefix);

    // How often the directory has been read: while it stands, so do the names.
    [[nodiscard]] std::uint64_t Readings() const noexcept { return readings_; }

    // For a caller that makes files in the directory whose names do not matter: IsCurrent, called
    // just before, says whether the time of change is still the known one; TakeOwnChange, called
    // just after, takes the new time for the known one. What others do between the two stays unseen
    // until the next change.
    [[nodiscard]] bool IsCurrent() const;
    void TakeOwnChange() { static_cast<void>(HasChanged()); }

  private:
    bool HasChanged();

    std::string directory_;
    std::string prefix_;
    std::string part_;
    std::vector<std::string> names_;
    timespec changed_{};
    std::uint64_t readings_ = 0;
    bool listed_ = false;
};

#endif
