// How many files of a log the process may hold open at once.
#ifndef ZYN_MULTIFILESTREAM_DESCRIPTORBUDGET_H
#define ZYN_MULTIFILESTREAM_DESCRIPTORBUDGET_H

#include <cstddef>

// Raises the process's soft limit of open descriptors, as far as the hard limit allows, when
// `files` files need it, and leaves some for everything else in the process.
class DescriptorBudget {
  public:
    explicit DescriptorBudget(std::size_t files) noexcept;

    // Whether one more file may stay open.
    [[nodiscard]] bool Take() noexcept {
        if (left_ == 0) {
            return false;
        }
        --left_;
        return true;
    }

  private:
    std::size_t left_ = 0;
};

#endif
