#include "ZynConfigFileReader/ConfigDocument.h"

#include <sys/stat.h>
#include <tinyxml.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Support/FileDescriptor.h"
#include "ZynConfigFileReader/MarkupScanner.h"

namespace {

constexpr const char* kCanNotOpen = "Failed to open file";

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

// Null when the text may be given to TinyXML, else what stands against it.
const char* FaultOf(const MarkupScanner& scanner) {
    if (scanner.Depth() > ConfigDocument::kMaxDepth) {
        return "Document is nested too deeply";
    }
    if (scanner.Attributes() > ConfigDocument::kMaxAttributes) {
        return "Element has too many attributes";
    }
    return scanner.CutDeclaration() ? "Error parsing Declaration." : nullptr;
}

}  // namespace

ConfigDocument::ConfigDocument() : document_(std::make_unique<TiXmlDocument>()) {}

ConfigDocument::~ConfigDocument() = default;

TiXmlElement* ConfigDocument::Root(const char* name) { return document_->FirstChildElement(name); }

std::string ConfigDocument::RootAttribute(const char* element, const std::string& attribute) {
    const TiXmlElement* root = Root(element);
    const std::string* value = root != nullptr ? root->Attribute(attribute) : nullptr;
    return value != nullptr ? *value : std::string();
}

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
    std::string_view content = text;
    MarkupScanner scanner(content, MarkupScanner::Reading::kAsDeclared, kMaxDepth);
    TiXmlEncoding encoding = TIXML_ENCODING_UNKNOWN;
    readByteByByte_ = scanner.SwallowsMarkup();
    if (readByteByByte_) {
        if (content.starts_with(MarkupScanner::kByteOrderMark)) {
            content.remove_prefix(MarkupScanner::kByteOrderMark.size());
        }
        scanner = MarkupScanner(content, MarkupScanner::Reading::kByteByByte, kMaxDepth);
        encoding = TIXML_ENCODING_LEGACY;
    }
    if (const char* fault = FaultOf(scanner)) {
        description_ = fault;
        return false;
    }
    // Rows and columns are not wanted, and counting them is what loops on a truncated character.
    document_->SetTabSize(0);
    document_->Parse(content.data(), nullptr, encoding);
    description_ = document_->ErrorDesc();
    return !document_->Error();
}
