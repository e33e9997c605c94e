// The least that an export can cost: reads all files of a directory in pieces of 256 KiB and writes
// as many bytes as its text has in pieces of 128 KiB, with nothing between. Usage: floor DIRECTORY
// TEXT BYTES

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "Support/FileDescriptor.h"

int main(int count, char** words) {
    if (count != 4) {
        std::cerr << "usage: floor DIRECTORY TEXT BYTES\n";
        return 2;
    }
    constexpr std::size_t kReadBytes = std::size_t{256} * 1024;
    constexpr std::size_t kWriteBytes = std::size_t{128} * 1024;
    std::vector<char> buffer(kReadBytes, 'x');
    for (const auto& entry : std::filesystem::directory_iterator(words[1])) {
        FileDescriptor file = OpenForReading(entry.path());
        while (file.ReadFully(buffer.data(), buffer.size(), buffer.size()) == buffer.size()) {
        }
    }
    const FileDescriptor text(open(words[2], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    for (std::uint64_t left = std::strtoull(words[3], nullptr, 10); left != 0;) {
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, kWriteBytes));
        if (write(text.Get(), buffer.data(), piece) != static_cast<ssize_t>(piece)) {
            std::cerr << "floor: cannot write " << words[2] << '\n';
            return 1;
        }
        left -= piece;
    }
    return 0;
}
