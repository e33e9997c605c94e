#include "ZynConfigFileReader/MarkupScanner.h"

#include <tinyxml.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace {

bool IsSpace(char character) { return std::isspace(static_cast<unsigned char>(character)) != 0; }

bool IsNameStart(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 127 || std::isalpha(byte) != 0 || byte == '_';
}

bool IsNamePart(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return IsNameStart(character) || std::isdigit(byte) != 0 || byte == '-' || byte == '.' ||
           byte == ':';
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [](char wanted, char character) {
               return wanted == std::tolower(static_cast<unsigned char>(character));
           });
}

// As TinyXML has it: by the first byte alone.
std::size_t SequenceLength(char first) {
    const auto lead = static_cast<unsigned char>(first);
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 1;
}

// TinyXML's own reading of a declaration, which is whole.
bool DeclaresUtf8(std::string_view declaration) {
    TiXmlDocument document;
    document.SetTabSize(0);
    document.Parse(std::string(declaration).c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    const TiXmlNode* first = document.FirstChild();
    const TiXmlDeclaration* read = first != nullptr ? first->ToDeclaration() : nullptr;
    if (read == nullptr) {
        return false;
    }
    const std::string_view encoding = read->Encoding();
    return encoding.empty() || StartsWithIgnoringCase(encoding, "utf-8") ||
           StartsWithIgnoringCase(encoding, "utf8");
}

}  // namespace

MarkupScanner::MarkupScanner(std::string_view text, Reading reading, std::size_t maxDepth)
    : text_(text), maxDepth_(maxDepth), declared_(reading == Reading::kByteByByte) {
    if (!declared_ && text.starts_with(kByteOrderMark)) {
        declared_ = true;
        utf8_ = true;
    }
    Run();
}

void MarkupScanner::Run() {
    for (SkipSpace(); !stopped_ && !AtEnd(); SkipSpace()) {
        if (Current() == '<') {
            SkipMarkup();
        } else if (open_.empty()) {
            Stop();
        } else {
            SkipText();
        }
    }
}

void MarkupScanner::SkipMarkup() {
    const std::string_view rest = Rest();
    if (rest.starts_with("</") && !open_.empty()) {
        SkipEndTag();
    } else if (StartsWithIgnoringCase(rest, "<?xml")) {
        SkipDeclaration();
    } else if (rest.starts_with("<!--")) {
        SkipPast("-->", 4);
    } else if (rest.starts_with("<![CDATA[")) {
        SkipPast("]]>", 9);
    } else if (rest.size() >= 2 && IsNameStart(rest[1])) {
        SkipElementTag();
    } else {
        SkipPast(">", 1);
    }
}

void MarkupScanner::SkipEndTag() {
    position_ += 2;
    if (!Rest().starts_with(open_.back())) {
        Stop();
        return;
    }
    position_ += open_.back().size();
    SkipSpace();
    if (Current() != '>') {
        Stop();
        return;
    }
    ++position_;
    open_.pop_back();
}

void MarkupScanner::SkipDeclaration() {
    const std::size_t start = position_;
    position_ += 5;
    while (!stopped_ && !AtEnd()) {
        if (Current() == '>') {
            ++position_;
            if (!declared_ && open_.empty()) {
                utf8_ = DeclaresUtf8(text_.substr(start, position_ - start));
                declared_ = true;
            }
            return;
        }
        SkipSpace();
        const std::string_view rest = Rest();
        if (rest.empty()) {
            // TinyXML looks at the character that is not there.
            cutDeclaration_ = true;
        } else if (StartsWithIgnoringCase(rest, "version") ||
                   StartsWithIgnoringCase(rest, "encoding") ||
                   StartsWithIgnoringCase(rest, "standalone")) {
            SkipAttribute();
        } else {
            while (!AtEnd() && Current() != '>' && !IsSpace(Current())) {
                ++position_;
            }
        }
    }
    Stop();
}

void MarkupScanner::SkipElementTag() {
    depth_ = std::max(depth_, open_.size() + 1);
    ++position_;
    SkipSpace();
    const std::size_t name = position_;
    SkipName();
    const std::string_view opened = text_.substr(name, position_ - name);
    if (opened.empty() || depth_ > maxDepth_) {
        Stop();
        return;
    }
    for (std::size_t attributes = 0; !stopped_;) {
        SkipSpace();
        if (Current() == '/') {
            if (!Rest().starts_with("/>")) {
                Stop();
            }
            position_ += 2;
            return;
        }
        if (Current() == '>') {
            ++position_;
            open_.push_back(opened);
            return;
        }
        SkipAttribute();
        attributes_ = std::max(attributes_, ++attributes);
    }
}

void MarkupScanner::SkipAttribute() {
    if (!IsNameStart(Current())) {
        Stop();
        return;
    }
    SkipName();
    SkipSpace();
    if (Current() != '=') {
        Stop();
        return;
    }
    ++position_;
    SkipSpace();
    const char quote = Current();
    if (quote == '"' || quote == '\'') {
        ++position_;
        SkipValue(quote);
        ++position_;
    } else {
        SkipBareValue();
    }
    if (AtEnd()) {
        Stop();
    }
}

void MarkupScanner::SkipBareValue() {
    while (!AtEnd() && !IsSpace(Current()) && Current() != '/' && Current() != '>') {
        if (Current() == '"' || Current() == '\'') {
            Stop();
            return;
        }
        ++position_;
    }
}

void MarkupScanner::SkipValue(char end) {
    while (!stopped_ && !AtEnd() && Current() != end) {
        SkipCharacter(end);
    }
}

void MarkupScanner::SkipText() {
    while (!stopped_ && !AtEnd() && Current() != '<') {
        SkipCharacter('<');
    }
}

void MarkupScanner::SkipCharacter(char end) {
    const std::size_t length = utf8_ ? SequenceLength(Current()) : 1;
    if (length == 1 && Current() == '&') {
        SkipReference();
        return;
    }
    const std::string_view sequence = text_.substr(position_, length);
    if (sequence.size() < length || sequence.find(end) != std::string_view::npos) {
        swallowsMarkup_ = true;
        Stop();
    }
    position_ += length;
}

// A reference to a character ends with the next semicolon, whatever lies between, if what stands
// right before that is a number.
void MarkupScanner::SkipReference() {
    const std::string_view rest = Rest();
    if (rest.starts_with("&#") && rest.size() > 2) {
        const bool hexadecimal = rest[2] == 'x';
        const std::size_t semicolon = rest.find(';', 2);
        if (semicolon == std::string_view::npos) {
            Stop();
            return;
        }
        for (std::size_t i = semicolon - 1; rest[i] != (hexadecimal ? 'x' : '#'); --i) {
            const auto digit = static_cast<unsigned char>(rest[i]);
            if (hexadecimal ? std::isxdigit(digit) == 0 : std::isdigit(digit) == 0) {
                Stop();
                return;
            }
        }
        position_ += semicolon + 1;
        return;
    }
    constexpr std::array<std::string_view, 5> kNamed{"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
    const auto* const named =
        std::find_if(kNamed.begin(), kNamed.end(),
                     [rest](std::string_view name) { return rest.starts_with(name); });
    position_ += named != kNamed.end() ? named->size() : 1;
}

void MarkupScanner::SkipName() {
    if (!IsNameStart(Current())) {
        return;
    }
    while (!AtEnd() && IsNamePart(Current())) {
        ++position_;
    }
}

void MarkupScanner::SkipSpace() {
    while (!AtEnd()) {
        const std::string_view rest = Rest();
        if (utf8_ && (rest.starts_with(kByteOrderMark) || rest.starts_with("\xEF\xBF\xBE") ||
                      rest.starts_with("\xEF\xBF\xBF"))) {
            position_ += 3;
        } else if (IsSpace(Current())) {
            ++position_;
        } else {
            return;
        }
    }
}

void MarkupScanner::SkipPast(std::string_view end, std::size_t offset) {
    const std::size_t found = text_.find(end, position_ + offset);
    if (found == std::string_view::npos) {
        position_ = text_.size();
        Stop();
    } else {
        position_ = found + end.size();
    }
}
