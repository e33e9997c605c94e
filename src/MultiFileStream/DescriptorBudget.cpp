#include "MultiFileStream/DescriptorBudget.h"

#include <sys/resource.h>

#include <algorithm>

namespace {

// The destination, the standard streams, the diagnostic log, the system log, and some to spare.
constexpr rlim_t kReserved = 64;

}  // namespace

DescriptorBudget::DescriptorBudget(std::size_t files) noexcept {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return;
    }
    const rlim_t wanted = static_cast<rlim_t>(files) + kReserved;
    if (limit.rlim_cur < wanted && limit.rlim_cur < limit.rlim_max) {
        const rlimit raised{std::min(wanted, limit.rlim_max), limit.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &raised) == 0) {
            limit = raised;
        }
    }
    if (limit.rlim_cur > kReserved) {
        left_ = static_cast<std::size_t>(std::min<rlim_t>(limit.rlim_cur - kReserved, files));
    }
}
