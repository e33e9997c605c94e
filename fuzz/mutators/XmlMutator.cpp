// Mutates configuration files as tags and the text between them, and closes again what is open, so
// that most of what comes out is a document.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mutators/Mutation.h"

namespace {

constexpr std::array<std::string_view, 18> kPieces{
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
    "<ZYNConfig trace=\"1\">",
    "<Logfile path=\"$(A)/l\" size=\"1\" maxbackups=\"2\" preserve_size=\"3\" "
    "preserve_maxbackups=\"4\"/>",
    "<Logfile path=\"/x\" size=\"1\" maxbackups=\"2\" preserve_size=\"3\" "
    "preserve_maxbackups=\"4\" duplicate_to_debug_console=\"1\" log_format=\"binary\">",
    "<StatusTrace state=\"on\"/>",
    "<StatusTrace/>",
    "<Network mode=\"server\"/>",
    "<Server port_number=\"1\" max_connection=\"99999999999\"/>",
    "<Client port_number=\"-1\" server_name=\"h\"/>",
    "<Global>",
    "<GLabel name=\"l1\" state=\"1\"/>",
    "<GClient name=\"c1\" state=\"1\">",
    "<GClientLabel name=\"l1\" state=\"0\"/>",
    "<Module name=\"m1\" state=\"1\">",
    "<MLabel name=\"l1\" state=\"1\"/>",
    "<MClient name=\"c1\" state=\"1\">",
    "<MClientLabel name=\"l1\" state=\"1\"/>",
    "<!-- <a> -->&lt;&#65;<![CDATA[]]>"};

// Tags, and what stands between them.
std::vector<std::string> TokensOf(std::string_view text) {
    std::vector<std::string> tokens;
    while (!text.empty()) {
        std::size_t end = text.find(text.front() == '<' ? '>' : '<', 1);
        end = end == std::string_view::npos ? text.size() : end + (text.front() == '<' ? 1 : 0);
        tokens.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return tokens;
}

std::string NameOf(const std::string& tag) {
    const std::size_t begin = tag.starts_with("</") ? 2 : 1;
    return tag.substr(begin, tag.find_first_of(" \t\n/>", begin) - begin);
}

bool Opens(const std::string& token) {
    return token.size() >= 3 && token[0] == '<' && token[1] != '/' && token[1] != '?' &&
           token[1] != '!' && token.back() == '>' && token[token.size() - 2] != '/';
}

// Drops end tags of what is not open and adds those that are missing.
std::string Balanced(const std::vector<std::string>& tokens) {
    std::string text;
    std::vector<std::string> open;
    const auto close = [&] {
        text += "</" + open.back() + ">";
        open.pop_back();
    };
    for (const std::string& token : tokens) {
        if (!token.starts_with("</")) {
            text += token;
            if (Opens(token)) {
                open.push_back(NameOf(token));
            }
            continue;
        }
        if (std::find(open.begin(), open.end(), NameOf(token)) == open.end()) {
            continue;
        }
        while (open.back() != NameOf(token)) {
            close();
        }
        close();
    }
    while (!open.empty()) {
        close();
    }
    return text;
}

void Change(std::vector<std::string>& tokens, Dice& dice) {
    const std::size_t at = dice.Below(tokens.size() + 1);
    const auto place = tokens.begin() + static_cast<std::ptrdiff_t>(at);
    if (at == tokens.size() || dice.Below(3) == 0) {
        tokens.emplace(place, kPieces[dice.Below(kPieces.size())]);
        return;
    }
    switch (dice.Below(4)) {
        case 0:
            tokens.erase(place);
            break;
        case 1: {
            const std::string copy = *place;
            tokens.insert(tokens.begin() + static_cast<std::ptrdiff_t>(dice.Below(tokens.size())),
                          copy);
            break;
        }
        case 2:
            std::swap(*place, tokens[dice.Below(tokens.size())]);
            break;
        default:
            Mutate(*place, 32);
            break;
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned int seed) {
    Dice dice(seed);
    if (dice.Below(6) == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::vector<std::string> tokens = TokensOf({reinterpret_cast<const char*>(data), size});
    for (std::size_t changes = 1 + dice.Below(3); changes != 0; --changes) {
        Change(tokens, dice);
    }
    return Deliver(Balanced(tokens), data, size, maxSize);
}
