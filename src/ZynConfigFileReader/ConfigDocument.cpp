#include "ZynConfigFileReader/ConfigDocument.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "Support/FileDescriptor.h"

namespace {

constexpr const char* kCanNotOpen = "Failed to open file";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Null when the text has been read, else why not.
const char* ReadWholeFile(const std::string& path, std::string& text) {
    FileDescriptor file = OpenForReading(path);
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return kCanNotOpen;
    }
    if (status.st_size > static_cast<off_t>(ConfigDocument::kMaxBytes)) {
        return "Document is too large";
    }
    text.resize(static_cast<std::size_t>(status.st_size));
    errno = 0;
    const std::size_t count = file.ReadFully(text.data(), text.size(), text.size());
    // Without an error the file has only become shorter.
    if (count < text.size() && errno != 0) {
        return kCanNotOpen;
    }
    text.resize(count);
    return nullptr;
}

// Line ends as XML wants them: each "\r\n" and each lone "\r" becomes "\n".
void NormaliseLineEnds(std::string& text) {
    if (text.find('\r') == std::string::npos) {
        return;
    }
    std::size_t to = 0;
    for (std::size_t from = 0; from < text.size(); ++from) {
        const char character = text[from];
        if (character == '\r' && from + 1 < text.size() && text[from + 1] == '\n') {
            continue;
        }
        text[to++] = character == '\r' ? '\n' : character;
    }
    text.resize(to);
}

std::size_t SequenceLength(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 1;
}

// Whether TinyXML, when it takes the text as UTF-8, meets the same markup as byte by byte: no
// sequence swallows a quote, a bracket or the end of the text, and none is taken for white space.
bool IsPlainUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = SequenceLength(static_cast<unsigned char>(text[i]));
        if (length > text.size() - i) {
            return false;
        }
        const std::string_view sequence = text.substr(i, length);
        const bool continued =
            std::all_of(sequence.begin() + 1, sequence.end(), [](char character) {
                return (static_cast<unsigned char>(character) & 0xC0U) == 0x80U;
            });
        if (!continued || sequence == kByteOrderMark || sequence == "\xEF\xBF\xBE" ||
            sequence == "\xEF\xBF\xBF") {
            return false;
        }
        i += length;
    }
    return true;
}

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

// Follows TinyXML's markup token by token, without its recursion. Where TinyXML gives up, so does
// this: what follows is never nested.
class MarkupScanner {
  public:
    explicit MarkupScanner(std::string_view text) : text_(text) {}

    void Run() {
        while (!stopped_) {
            SkipTo("<", 0);
            if (!stopped_) {
                SkipMarkup();
            }
        }
    }

    [[nodiscard]] std::size_t MaxDepth() const noexcept { return maxDepth_; }
    [[nodiscard]] std::size_t MaxAttributes() const noexcept { return maxAttributes_; }
    [[nodiscard]] bool CutDeclaration() const noexcept { return cutDeclaration_; }

  private:
    void SkipMarkup() {
        const std::string_view rest = text_.substr(position_);
        if (rest.starts_with("</")) {
            depth_ -= depth_ != 0 ? 1 : 0;
            SkipPast(">", 2);
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

    void SkipDeclaration() {
        position_ += 5;
        while (!stopped_ && position_ < text_.size()) {
            if (text_[position_] == '>') {
                ++position_;
                return;
            }
            SkipSpace();
            const std::string_view rest = text_.substr(position_);
            if (rest.empty()) {
                // TinyXML looks at the character that is not there.
                cutDeclaration_ = true;
            } else if (StartsWithIgnoringCase(rest, "version") ||
                       StartsWithIgnoringCase(rest, "encoding") ||
                       StartsWithIgnoringCase(rest, "standalone")) {
                SkipAttribute();
            } else {
                while (position_ < text_.size() && text_[position_] != '>' &&
                       !IsSpace(text_[position_])) {
                    ++position_;
                }
            }
        }
        stopped_ = true;
    }

    void SkipElementTag() {
        maxDepth_ = std::max(maxDepth_, depth_ + 1);
        ++position_;
        SkipName();
        std::size_t attributes = 0;
        while (!stopped_) {
            SkipSpace();
            const char character = position_ < text_.size() ? text_[position_] : '\0';
            if (character == '/') {
                stopped_ = text_.substr(position_, 2) != "/>";
                position_ += 2;
                return;
            }
            if (character == '>') {
                ++position_;
                ++depth_;
                return;
            }
            SkipAttribute();
            maxAttributes_ = std::max(maxAttributes_, ++attributes);
        }
    }

    void SkipAttribute() {
        if (position_ >= text_.size() || !IsNameStart(text_[position_])) {
            stopped_ = true;
            return;
        }
        SkipName();
        SkipSpace();
        if (position_ >= text_.size() || text_[position_] != '=') {
            stopped_ = true;
            return;
        }
        ++position_;
        SkipSpace();
        if (position_ >= text_.size()) {
            stopped_ = true;
        } else if (text_[position_] == '"') {
            SkipPast("\"", 1);
        } else if (text_[position_] == '\'') {
            SkipPast("'", 1);
        } else {
            SkipBareValue();
        }
    }

    void SkipBareValue() {
        while (position_ < text_.size() && !IsSpace(text_[position_]) && text_[position_] != '/' &&
               text_[position_] != '>') {
            if (text_[position_] == '"' || text_[position_] == '\'') {
                stopped_ = true;
                return;
            }
            ++position_;
        }
    }

    void SkipName() {
        while (position_ < text_.size() && IsNamePart(text_[position_])) {
            ++position_;
        }
    }
    void SkipSpace() {
        while (position_ < text_.size() && IsSpace(text_[position_])) {
            ++position_;
        }
    }
    void SkipTo(std::string_view end, std::size_t offset) {
        const std::size_t found = text_.find(end, position_ + offset);
        stopped_ = found == std::string_view::npos;
        position_ = stopped_ ? text_.size() : found;
    }
    void SkipPast(std::string_view end, std::size_t offset) {
        SkipTo(end, offset);
        position_ += stopped_ ? 0 : end.size();
    }

    std::string_view text_;
    std::size_t position_ = 0;
    std::size_t depth_ = 0;
    std::size_t maxDepth_ = 0;
    std::size_t maxAttributes_ = 0;
    bool stopped_ = false;
    bool cutDeclaration_ = false;
};

}  // namespace

bool ConfigDocument::Load(const std::string& path) {
    std::string text;
    if (const char* fault = ReadWholeFile(path, text)) {
        description_ = fault;
        return false;
    }
    return Parse(std::move(text));
}

bool ConfigDocument::Parse(std::string text) {
    // TinyXML reads up to the first NUL.
    text.resize(std::min(text.size(), text.find('\0')));
    NormaliseLineEnds(text);
    TiXmlEncoding encoding = TIXML_ENCODING_UNKNOWN;
    std::string_view content = text;
    if (content.starts_with(kByteOrderMark)) {
        content.remove_prefix(kByteOrderMark.size());
        encoding = TIXML_ENCODING_UTF8;
    }
    if (!IsPlainUtf8(content)) {
        encoding = TIXML_ENCODING_LEGACY;
    }
    if (const char* fault = Examine(content)) {
        description_ = fault;
        return false;
    }
    // Rows and columns are not wanted, and counting them is what loops on a truncated character.
    document_.SetTabSize(0);
    document_.Parse(content.data(), nullptr, encoding);
    description_ = document_.ErrorDesc();
    return !document_.Error();
}

const char* ConfigDocument::Examine(std::string_view text) {
    MarkupScanner scanner(text);
    scanner.Run();
    if (scanner.MaxDepth() > kMaxDepth) {
        return "Document is nested too deeply";
    }
    if (scanner.MaxAttributes() > kMaxAttributes) {
        return "Element has too many attributes";
    }
    return scanner.CutDeclaration() ? "Error parsing Declaration." : nullptr;
}

std::size_t ConfigDocument::NestingDepth(std::string_view text) {
    MarkupScanner scanner(text);
    scanner.Run();
    return scanner.MaxDepth();
}
