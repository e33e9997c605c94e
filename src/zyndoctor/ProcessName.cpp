#include "zyndoctor/ProcessName.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>

bool ProcessLives(unsigned int pid) {
    struct stat status {};
    return ::stat(("/proc/" + std::to_string(pid)).c_str(), &status) == 0;
}

std::string ProcessName(unsigned int pid) {
    std::array<char, 256> line{};
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    file.read(line.data(), line.size());
    std::string text(line.data(), static_cast<std::size_t>(file.gcount()));
    while (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), '\0', ' ');
    std::string name = "process " + std::to_string(pid);
    return text.empty() ? name : name + " (" + text + ')';
}
