#include "Support/LostPages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace {

// Read by the signal handler: atomic words, no locks.
struct Region {
    std::atomic<std::uintptr_t> begin{0};  // 0: free
    std::atomic<std::size_t> size{0};      // 0: watches nothing
};

constinit std::array<Region, lostpages::kMostRegions> regions{};
constinit std::atomic<std::uintptr_t> pageSize{0};

static_assert(std::atomic<std::uintptr_t>::is_always_lock_free);

bool IsWatched(std::uintptr_t page) noexcept {
    for (const Region& region : regions) {
        const std::size_t size = region.size.load(std::memory_order_acquire);
        const std::uintptr_t begin = region.begin.load(std::memory_order_relaxed);
        if (page >= begin && page - begin < size) {
            return true;
        }
    }
    return false;
}

bool ReplacePage(std::uintptr_t page) noexcept {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a page has no other name
    void* const address = reinterpret_cast<void*>(page);
    // A plain system call, so a signal handler may make it.
    return ::mmap(address, pageSize, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

void OnBusError(int /*number*/, siginfo_t* info, void* /*context*/) {
    const int error = errno;
    const std::uintptr_t page =
        reinterpret_cast<std::uintptr_t>(info->si_addr) & ~(pageSize.load() - 1);
    const bool replaced = info->si_code == BUS_ADRERR && IsWatched(page) && ReplacePage(page);
    if (!replaced) {
        // On return the access is tried again, or a signal that somebody sent comes again, and ends
        // the process.
        static_cast<void>(::signal(SIGBUS, SIG_DFL));
        if (info->si_code <= 0) {
            static_cast<void>(::raise(SIGBUS));
        }
    }
    errno = error;
}

}  // namespace

void lostpages::Replace() noexcept {
    pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = OnBusError;
    action.sa_flags = SA_SIGINFO;
    ::sigemptyset(&action.sa_mask);
    static_cast<void>(::sigaction(SIGBUS, &action, nullptr));
}

void lostpages::Watch(const char* begin, std::size_t size) noexcept {
    for (Region& region : regions) {
        std::uintptr_t free = 0;
        if (region.begin.compare_exchange_strong(free, reinterpret_cast<std::uintptr_t>(begin))) {
            region.size.store(size, std::memory_order_release);
            return;
        }
    }
}

void lostpages::Forget(const char* begin) noexcept {
    for (Region& region : regions) {
        if (region.begin == reinterpret_cast<std::uintptr_t>(begin)) {
            region.size = 0;
            region.begin = 0;
            return;
        }
    }
}
