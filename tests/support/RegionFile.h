#ifndef ZYN_TESTS_SUPPORT_REGIONFILE_H
#define ZYN_TESTS_SUPPORT_REGIONFILE_H

// The file of a shared region as another program sees it: read and written by plain file calls,
// which meet the mappings of the code under test in the page cache.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

class RegionFile {
  public:
    static constexpr std::uint32_t kRead = 0;
    static constexpr std::uint32_t kWrite = 4;
    static constexpr std::uint32_t kCapacity = 8;
    static constexpr std::uint32_t kData = 12;

    explicit RegionFile(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
        if (fd_ == -1) {
            throw std::runtime_error("cannot open " + path);
        }
    }
    RegionFile(const RegionFile&) = delete;
    RegionFile& operator=(const RegionFile&) = delete;
    ~RegionFile() { ::close(fd_); }

    [[nodiscard]] std::string Bytes(std::uint32_t offset, std::size_t count) const {
        std::string bytes(count, '\0');
        if (::pread(fd_, bytes.data(), count, offset) != static_cast<ssize_t>(count)) {
            throw std::runtime_error("cannot read the region");
        }
        return bytes;
    }
    void Put(std::uint32_t offset, const std::string& bytes) const {
        if (::pwrite(fd_, bytes.data(), bytes.size(), offset) !=
            static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("cannot write the region");
        }
    }
    [[nodiscard]] std::uint32_t Word(std::uint32_t offset) const {
        std::uint32_t word = 0;
        std::memcpy(&word, Bytes(offset, sizeof word).data(), sizeof word);
        return word;
    }
    void SetWord(std::uint32_t offset, std::uint32_t word) const { Put(offset, Text(word)); }

    // Puts bytes at the start of an empty ring.
    void Fill(const std::string& bytes) const {
        Put(kData, bytes);
        SetWord(kRead, 0);
        SetWord(kWrite, static_cast<std::uint32_t>(bytes.size()));
    }

    // Adds bytes behind those in a message ring, across its end where it must be.
    void Append(const std::string& bytes) const {
        constexpr std::uint32_t kRingBytes = 512;
        std::uint32_t position = Word(kWrite);
        for (const char byte : bytes) {
            Put(kData + position, std::string(1, byte));
            position = (position + 1) % kRingBytes;
        }
        SetWord(kWrite, position);
    }

    // A word as it lies in a region.
    static std::string Text(std::uint32_t word) {
        std::array<char, sizeof word> bytes{};
        std::memcpy(bytes.data(), &word, sizeof word);
        return {bytes.data(), bytes.size()};
    }
    // A message frame around a record of words.
    template <typename... Words>
    static std::string Frame(Words... words) {
        return std::string(1, '\x0A') + Text(sizeof...(words) * sizeof(std::uint32_t)) +
               (std::string() + ... + Text(static_cast<std::uint32_t>(words)));
    }

  private:
    int fd_;
};

#endif
