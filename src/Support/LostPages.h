// Regions of shared memory that stay readable when their file is taken away under them. Touching a
// page that the file no longer has, or that a full disk cannot give it, is a bus error, which ends
// the process; checks ahead of the access leave the moment between the two.
#ifndef ZYN_SUPPORT_LOSTPAGES_H
#define ZYN_SUPPORT_LOSTPAGES_H

#include <cstddef>

namespace lostpages {

// How many regions are watched at a time; further ones are not.
constexpr std::size_t kMostRegions = 8;

// From now on a page that a watched region has lost is replaced by a page of zeros of this
// process's own when it is touched; any other bus error ends the process as before. A ring on such
// a page is empty, so whoever waits for an answer ends as with a silent service. Sets the process's
// action for SIGBUS: for the main function of a program, never for a library in someone else's.
void Replace() noexcept;

// SharedMemory calls these for its mapping: begin is page-aligned. Safe on all threads.
void Watch(const char* begin, std::size_t size) noexcept;
// Before the mapping goes.
void Forget(const char* begin) noexcept;

}  // namespace lostpages

#endif
