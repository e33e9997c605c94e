// Prints what a walk over the blocks of a log finds, one line each, for tests that compare it with
// another reading of the same log. Usage: zyn-print-blocks [--hop] LOG
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "LogReading/BlockWalker.h"
#include "LogReading/LogInput.h"

namespace {

class IssueLines final : public InputListener {
  public:
    void OnIssue(const InputIssue& issue) override {
        std::cout << "issue " << issue.path << ' ' << issue.text << '\n';
    }
};

std::string Hex(std::string_view bytes) {
    static constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += kDigits[value >> 4U];
        text += kDigits[value & 0x0FU];
    }
    return text;
}

// A checksum that shows whether the right bytes were handed out.
std::uint32_t SumOf(const FoundBlock& block) {
    std::uint32_t sum = 1;
    for (std::uint32_t index = 0; index < block.dataBytes; ++index) {
        sum = sum * 31 + static_cast<unsigned char>(block.data[index]);
    }
    return sum;
}

void Print(LogData& data, bool hop) {
    BlockWalker walker(data);
    while (true) {
        const BlockWalker::Step step = hop ? walker.Hop() : walker.Next();
        if (step == BlockWalker::Step::kBlock) {
            const FoundBlock& block = walker.Block();
            std::cout << "block " << block.position << ' ' << block.dataPosition << ' '
                      << block.dataBytes << ' ' << block.processId << " <" << Hex(block.Host())
                      << '>';
            if (block.data != nullptr) {
                std::cout << ' ' << SumOf(block);
            }
            std::cout << '\n';
        } else if (step == BlockWalker::Step::kDamage) {
            const DamagedPlace& place = walker.Damage();
            std::cout << (place.damage == BlockDamage::kBlockCut ? "cut " : "header ")
                      << place.position << ' ' << place.bytes << '\n';
        } else {
            return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    const bool hop = argc == 3 && std::string_view(argv[1]) == "--hop";
    if (argc != 2 && !hop) {
        std::cerr << "usage: zyn-print-blocks [--hop] LOG\n";
        return 2;
    }
    try {
        IssueLines issues;
        const auto data = OpenLog(argv[argc - 1], issues);
        Print(*data, hop);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 2;
    }
}
