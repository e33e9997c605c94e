// Directory listing, and removal of what was listed.
#ifndef ZYN_SUPPORT_FILESYSTEM_H
#define ZYN_SUPPORT_FILESYSTEM_H

#include <dirent.h>

#include <cstdint>
#include <ctime>
#include <memory>
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

// A directory that stays the same one for as long as this is open, whatever comes to stand under
// its path. One thread.
class OpenedDirectory {
  public:
    // One that cannot be opened has no entries.
    explicit OpenedDirectory(const std::string& directory);

    // As CFileSystem::FindAllFiles does, once.
    void FindAllFiles(const std::string& prefix, const std::string& part,
                      std::vector<std::string>& names);

    // Removes an entry that was found, and that is no directory. False with errno set when it
    // cannot be.
    [[nodiscard]] bool Remove(const std::string& name) noexcept;

  private:
    struct Closer {
        void operator()(DIR* directory) const noexcept { closedir(directory); }
    };

    std::unique_ptr<DIR, Closer> directory_;
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
