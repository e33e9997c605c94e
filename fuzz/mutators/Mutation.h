// What the custom mutators share.
#ifndef ZYN_FUZZ_MUTATORS_MUTATION_H
#define ZYN_FUZZ_MUTATORS_MUTATION_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

// libFuzzer's own: changes size bytes in place, up to maxSize of them, and returns the new size.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

class Dice {
  public:
    explicit Dice(unsigned int seed) : engine_(seed) {}
    // 0 to bound - 1; bound is not 0.
    std::size_t Below(std::size_t bound) { return static_cast<std::size_t>(engine_()) % bound; }

  private:
    std::minstd_rand engine_;
};

// LLVMFuzzerMutate on a string, which grows by growth bytes at most.
inline void Mutate(std::string& text, std::size_t growth) {
    const std::size_t size = text.size();
    text.resize(size + growth);
    auto* bytes = reinterpret_cast<std::uint8_t*>(text.data());
    text.resize(LLVMFuzzerMutate(bytes, size, text.size()));
}

// The result of a mutator; one that has become too large is left out, for a plain mutation.
inline std::size_t Deliver(const std::string& result, std::uint8_t* data, std::size_t size,
                           std::size_t maxSize) {
    if (result.empty() || result.size() > maxSize) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::memcpy(data, result.data(), result.size());
    return result.size();
}

#endif
