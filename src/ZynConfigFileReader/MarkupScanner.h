// Follows TinyXML through a document, token by token and without its recursion, to know before it
// does how deep it would go and where it would take markup for a part of a character. Where TinyXML
// gives up, so does this.
#ifndef ZYN_ZYNCONFIGFILEREADER_MARKUPSCANNER_H
#define ZYN_ZYNCONFIGFILEREADER_MARKUPSCANNER_H

#include <cstddef>
#include <string_view>
#include <vector>

class MarkupScanner {
  public:
    static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

    // What makes up a character: what TinyXML finds by the byte order mark and the declaration, or
    // each byte.
    enum class Reading { kAsDeclared, kByteByByte };

    // Scans text without NULs, which is not kept; stops where elements are nested deeper than
    // maxDepth.
    MarkupScanner(std::string_view text, Reading reading, std::size_t maxDepth);

    // The deepest nesting TinyXML reaches; at least that where an element repeats an attribute.
    [[nodiscard]] std::size_t Depth() const noexcept { return depth_; }
    // The most attributes of one element.
    [[nodiscard]] std::size_t Attributes() const noexcept { return attributes_; }
    // Whether the text ends where TinyXML would look for more of a declaration.
    [[nodiscard]] bool CutDeclaration() const noexcept { return cutDeclaration_; }
    // Whether a byte that announces a character of several stands so close to the end of a value,
    // of a piece of text or of the whole that this end would be taken for a part of it.
    [[nodiscard]] bool SwallowsMarkup() const noexcept { return swallowsMarkup_; }

  private:
    void Run();
    void SkipMarkup();
    void SkipEndTag();
    void SkipDeclaration();
    void SkipElementTag();
    void SkipAttribute();
    void SkipBareValue();
    // Up to the character that ends it, which is not part of it.
    void SkipValue(char end);
    void SkipText();
    void SkipCharacter(char end);
    void SkipReference();
    void SkipName();
    void SkipSpace();
    void SkipPast(std::string_view end, std::size_t offset);

    [[nodiscard]] bool AtEnd() const noexcept { return position_ >= text_.size(); }
    [[nodiscard]] char Current() const noexcept { return AtEnd() ? '\0' : text_[position_]; }
    [[nodiscard]] std::string_view Rest() const noexcept { return text_.substr(position_); }
    void Stop() noexcept { stopped_ = true; }

    std::string_view text_;
    std::size_t maxDepth_;
    std::size_t position_ = 0;
    std::vector<std::string_view> open_;  // names of the elements around the position
    std::size_t depth_ = 0;
    std::size_t attributes_ = 0;
    bool declared_;  // nothing changes utf8_ any more
    bool utf8_ = false;
    bool stopped_ = false;
    bool cutDeclaration_ = false;
    bool swallowsMarkup_ = false;
};

#endif
