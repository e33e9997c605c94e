// Mutated configurations as they are loaded here and by TinyXML itself: the same document, or the
// reason why not is one of those that are named below.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <tinyxml.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "ZynConfigFileReader/ConfigDocument.h"

namespace {

constexpr std::string_view kConfiguration =
    "<!-- \xC3\xA9 -->\n<ZYNConfig trace=\"1\">\n"
    "<Logfile path=\"/var/log/&#xe9;t&#233;/$(HOST)\" size='&#x31;' maxbackups='2'\r\n"
    "  preserve_size=\"3\" preserve_maxbackups='4' log_format=binary/>\n"
    "<StatusTrace state=\"on\"/>text \xE2\x82\xAC and &amp; more<![CDATA[ <x> ]]>\n"
    "<Global><GLabel name='\xC3\xA9t\xC3\xA9 &lt;1&gt;' state=\"1\"/></Global>\n"
    "<Module name=\"m&quot;n\" state=\"1\"><MLabel name='l' state='0'></MLabel></Module>\n"
    "</ZYNConfig>\n";

constexpr std::array<std::string_view, 6> kProlog{R"(<?xml version="1.0" encoding="UTF-8"?>)",
                                                  R"(<?xml version='1.0' encoding='utf8' ?>)",
                                                  R"(<?xml version="1.0"?>)",
                                                  R"(<?xml version="1.0" encoding="ISO-8859-1"?>)",
                                                  "",
                                                  "\xEF\xBB\xBF<?xml version='1.0'?>"};

constexpr std::array<std::string_view, 30> kPieces{"\xEF\xBB\xBF",
                                                   "\xEF\xBF\xBE",
                                                   "\xEF\xBF\xBF",
                                                   "\xE9",
                                                   "\xC3",
                                                   "\xF0",
                                                   "\xE2\x82",
                                                   "\x80",
                                                   "\xFF",
                                                   "\xC0",
                                                   "\xF4\x8F",
                                                   "\"",
                                                   "'",
                                                   "<",
                                                   ">",
                                                   "/",
                                                   "&",
                                                   "&#x",
                                                   "&#xe9;",
                                                   "&#233;",
                                                   ";",
                                                   "=",
                                                   " ",
                                                   "<a>",
                                                   "</a>",
                                                   "<a b='",
                                                   "<!--",
                                                   "-->",
                                                   "<![CDATA[",
                                                   "\r"};

// A file in memory: thousands are written.
class MemoryFile {
  public:
    MemoryFile() : file_(::memfd_create("config", MFD_CLOEXEC)) {}
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(file_); }

    [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(file_); }
    void Write(const std::string& text) const {
        ASSERT_EQ(::ftruncate(file_, 0), 0);
        ASSERT_EQ(::pwrite(file_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }

  private:
    int file_;
};

class Mutations {
  public:
    explicit Mutations(std::uint32_t seed) : random_(seed) {}

    std::string Next() {
        std::string text(kProlog.at(Pick(kProlog.size())));
        text += kConfiguration;
        for (std::size_t i = Pick(4); i > 0; --i) {
            Mutate(text);
        }
        // TinyXML looks past the end of text whose last character is cut short.
        return text + "\n\n\n\n";
    }

  private:
    void Mutate(std::string& text) {
        const std::size_t place = Pick(text.size());
        switch (Pick(6)) {
            case 0:
                text[place] = static_cast<char>(Pick(255) + 1);
                break;
            case 1:
                text.erase(place, Pick(8));
                break;
            case 2:
                text.insert(place, text.substr(Pick(text.size()), Pick(30)));
                break;
            default:
                text.insert(place, kPieces.at(Pick(kPieces.size())));
                break;
        }
    }
    std::size_t Pick(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
    }

    std::mt19937 random_;
};

// Everything below a node, each string behind its length.
std::string Written(const TiXmlNode* node) {
    if (node == nullptr) {
        return "none";
    }
    const auto counted = [](const std::string& text) {
        return std::to_string(text.size()) + ":" + text;
    };
    std::string written = "(" + std::to_string(node->Type()) + counted(node->ValueStr());
    if (const TiXmlElement* element = node->ToElement()) {
        for (const TiXmlAttribute* attribute = element->FirstAttribute(); attribute != nullptr;
             attribute = attribute->Next()) {
            written += " " + counted(attribute->Name()) + "=" + counted(attribute->ValueStr());
        }
    }
    for (const TiXmlNode* child = node->FirstChild(); child != nullptr;
         child = child->NextSibling()) {
        written += Written(child);
    }
    return written + ")";
}

// Whether a byte that announces a character of several has the end of a value or of text among the
// bytes it announces.
bool HasSequenceOverMarkup(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0xC2 || lead > 0xF4 ? 1
                                   : lead < 0xE0              ? 2
                                   : lead < 0xF0              ? 3
                                                              : 4;
        if (text.substr(i, length).find_first_of("\"'<") != std::string_view::npos && length > 1) {
            return true;
        }
    }
    return false;
}

TEST(ConfigDocumentDifferential, MutatedConfigurationsAreReadAsTinyXmlReadsThem) {
    const std::uint32_t seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    const MemoryFile file;
    Mutations mutations(seed);
    int same = 0;
    int byteByByte = 0;
    int cutDeclarations = 0;
    int loaded = 0;
    for (int i = 0; i < 12'000; ++i) {
        const std::string text = mutations.Next();
        file.Write(text);
        ConfigDocument document;
        const bool success = document.Load(file.Path());
        loaded += success ? 1 : 0;
        if (document.ErrorDescription() == "Error parsing Declaration.") {
            // There TinyXML looks at the character that is not there.
            ++cutDeclarations;
            continue;
        }
        TiXmlDocument plain;
        const bool plainSuccess = plain.LoadFile(file.Path());
        if (success == plainSuccess && document.ErrorDescription() == plain.ErrorDesc() &&
            Written(document.Root("ZYNConfig")) == Written(plain.FirstChildElement("ZYNConfig"))) {
            ++same;
            continue;
        }
        ASSERT_TRUE(document.ReadByteByByte())
            << document.ErrorDescription() << " / " << plain.ErrorDesc() << "\n"
            << text;
        ASSERT_TRUE(HasSequenceOverMarkup(text)) << text;
        ++byteByByte;
    }
    RecordProperty("read byte by byte", byteByByte);
    EXPECT_GT(same, 10'000);
    EXPECT_GT(loaded, 3'000);
    EXPECT_LT(cutDeclarations, 300);
    EXPECT_GT(byteByByte, 0) << "this kind is named for nothing";
}

}  // namespace
