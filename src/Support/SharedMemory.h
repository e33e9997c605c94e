// Named memory shared between processes: a file "<run directory><name>.map" whose content is
// exactly the shared bytes. The rings between this process and the tracing service lie in such
// regions.
#ifndef ZYN_SUPPORT_SHAREDMEMORY_H
#define ZYN_SUPPORT_SHAREDMEMORY_H

#include <cstddef>
#include <string>
#include <utility>

#include "Support/FileDescriptor.h"

// One mapping, for reading and writing. The creator owns the file and removes it at the end; its
// size is the creator's, and an opener takes it from the file. The run directory must exist. The
// object has no lock: its users agree on who touches which byte when.
//
// The other side can shorten the file at any time, and touching a page that is gone ends the
// process with SIGBUS. A user checks IsBacked() before it touches a region that another program
// could have shortened; what remains is the moment between the check and the access, which zyntool
// survives (LostPages.h). A program that links the client library decides about signals itself, and
// there the moment stays.
class SharedMemory {
  public:
    // Opens a region that another process created. Throws CheckOSCall "Can not open file", "Can not
    // seek to the end of file" or, also for an empty file, "Can not open file mapping".
    explicit SharedMemory(const std::string& name);

    // Creates a region of size zero bytes; a file of that name is emptied first, unless it is not a
    // plain file with this name alone. The file gets the read and write permissions of the product
    // directory. Throws CheckOSCall "Can not create for shared memory", "Can not adjust file size"
    // (also when the disk has no room for it) or "Can not map memory"; no file stays behind then.
    SharedMemory(const std::string& name, int size);

    // The same for a region of which this process touches only the first touchedBytes: the disk
    // needs room for no more. What the others touch is theirs to find room for.
    SharedMemory(const std::string& name, int size, int touchedBytes);

    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;
    // Failures are dropped.
    virtual ~SharedMemory();

    // Page-aligned.
    [[nodiscard]] char* Address() const noexcept { return address_; }
    [[nodiscard]] unsigned int Size() const noexcept { return size_; }

    // Throws CheckOSCall "Can not open file mapping" with "Invalid argument", as for an empty file,
    // when the region is smaller than its use needs.
    void Require(std::size_t bytes) const;

    // Whether the file still is as long as the mapping.
    [[nodiscard]] bool IsBacked() const noexcept;

  private:
    // The open file. At its end it is closed, and the creator's is removed; failures are dropped.
    struct BackingFile {
        BackingFile(std::string filePath, bool isOwner)
            : path(std::move(filePath)), owner(isOwner) {}
        BackingFile(const BackingFile&) = delete;
        BackingFile& operator=(const BackingFile&) = delete;
        ~BackingFile();

        FileDescriptor fd;
        std::string path;
        bool owner;
    };

    unsigned int size_ = 0;
    char* address_ = nullptr;
    BackingFile file_;
};

#endif
