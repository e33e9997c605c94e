// Loads an XML file into a TinyXML document without trusting it. TinyXML recurses once per nesting
// level, reads a directory as if it were a file, and steps past the end of text whose last
// character is cut short, so the text is examined before TinyXML sees it. What it then makes of the
// text is what its own loading of the file would, but for the limits and the case named below.
#ifndef ZYN_ZYNCONFIGFILEREADER_CONFIGDOCUMENT_H
#define ZYN_ZYNCONFIGFILEREADER_CONFIGDOCUMENT_H

#include <cstddef>
#include <memory>
#include <string>

class TiXmlDocument;
class TiXmlElement;

class ConfigDocument {
  public:
    ConfigDocument();
    ConfigDocument(const ConfigDocument&) = delete;
    ConfigDocument& operator=(const ConfigDocument&) = delete;
    ~ConfigDocument();

    static constexpr std::size_t kMaxBytes = std::size_t{16} * 1024 * 1024;
    static constexpr std::size_t kMaxDepth = 1000;
    // TinyXML compares each attribute with all before it.
    static constexpr std::size_t kMaxAttributes = 1000;

    // False when the path is no regular file that can be read, the file exceeds a limit above, or
    // its text is no XML; ErrorDescription() then says why. Loads once per object. Throws nothing
    // but std::bad_alloc.
    bool Load(const std::string& path);
    // As Load, for text in memory.
    bool Parse(std::string text);

    // TinyXML's words; empty while nothing went wrong.
    [[nodiscard]] const std::string& ErrorDescription() const noexcept { return description_; }

    // The document's first element of that name, null when there is none. Goes with this object.
    [[nodiscard]] TiXmlElement* Root(const char* name);
    // An attribute of that element, empty when there is no such element or attribute.
    [[nodiscard]] std::string RootAttribute(const char* element, const std::string& attribute);

    // Whether the text was read byte by byte although it is declared to be UTF-8, because TinyXML
    // would have taken the end of a value, of a piece of text or of the whole for a part of a
    // character. References to characters beyond ASCII are read as single bytes then.
    [[nodiscard]] bool ReadByteByByte() const noexcept { return readByteByByte_; }

  private:
    // Behind a pointer, so that those who merely load need no header of TinyXML.
    std::unique_ptr<TiXmlDocument> document_;
    std::string description_;
    bool readByteByByte_ = false;
};

#endif
