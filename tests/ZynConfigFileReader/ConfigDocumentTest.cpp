#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>

#include "ZynConfigFileReader/ConfigDocument.h"
#include "ZynConfigFileReader/MarkupScanner.h"
#include "testing/faults/LibcFaults.h"
#include "testing/process/Files.h"

namespace {

std::string Repeat(std::string_view piece, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += piece;
    }
    return text;
}

std::string Nested(std::size_t depth) { return Repeat("<a>", depth) + Repeat("</a>", depth); }

std::string FaultOf(const std::string& text) {
    ConfigDocument document;
    return document.Parse(text) ? "none" : document.ErrorDescription();
}

TEST(ConfigDocument, AThousandLevelsAreRead) {
    EXPECT_EQ(FaultOf(Nested(1000)), "none");
    EXPECT_EQ(FaultOf(Repeat("<a>", 999) + "<a/>" + Repeat("</a>", 999)), "none");
}

TEST(ConfigDocument, MoreLevelsAreALoadFailure) {
    EXPECT_EQ(FaultOf(Nested(1001)), "Document is nested too deeply");
    EXPECT_EQ(FaultOf(Repeat("<a>", 1000) + "<a/>"), "Document is nested too deeply");
    EXPECT_EQ(FaultOf(Repeat("<a>", 3'000'000)), "Document is nested too deeply");
}

TEST(ConfigDocument, SiblingsDoNotNest) {
    EXPECT_EQ(FaultOf("<r>" + Repeat("<a></a><b/>", 5000) + "</r>"), "none");
}

TEST(ConfigDocument, MarkupInsideCommentsSectionsAndValuesDoesNotNest) {
    const std::string hidden = Repeat("<a>", 2000);
    EXPECT_EQ(FaultOf("<r><!--" + hidden + "--></r>"), "none");
    EXPECT_EQ(FaultOf("<r><![CDATA[" + hidden + "]]></r>"), "none");
    EXPECT_EQ(FaultOf("<r v=\"" + hidden + "\"/>"), "none");
    EXPECT_EQ(FaultOf("<r v='" + hidden + "'/>"), "none");
}

TEST(ConfigDocument, NothingHidesRealNesting) {
    const std::string deep = Nested(2000);
    for (const std::string_view before :
         {"<!-- </a> -->", R"(<?xml version="><!--"?>)", R"(<?xml encoding="><!--"?>)",
          R"(<?XML standalone="><!--"?>)", R"(<?xml foo=" version="><!-- x" ?>)", "<?pi <!-- ?>",
          "<!DOCTYPE x [<!--]>", "<!-->x-->", "<a b='\"'/>", R"(<a b="'"/>)", "<![CDATA[]]]]>",
          "<a b=c/>", "\xEF\xBB\xBF<!-- -->"}) {
        EXPECT_EQ(FaultOf(std::string(before) + deep), "Document is nested too deeply") << before;
    }
}

TEST(ConfigDocument, ALeadByteSwallowsNoMarkup) {
    // Taken for UTF-8, the byte before the quote would swallow it and hide what follows.
    const std::string declared = R"(<?xml version="1.0" encoding="UTF-8"?>)";
    EXPECT_EQ(FaultOf(declared + "<a b=\"\xF0\"/>" + Nested(2000)),
              "Document is nested too deeply");
    ConfigDocument document;
    ASSERT_TRUE(document.Parse(declared + "<a b=\"\xF0\" c=\"1\"/>"));
    EXPECT_EQ(*document.Root("a")->Attribute(std::string("b")), "\xF0");
    EXPECT_EQ(*document.Root("a")->Attribute(std::string("c")), "1");
}

TEST(ConfigDocument, AReferenceThatReachesOverAQuoteHidesNoNesting) {
    EXPECT_EQ(FaultOf("<a b=\"&#x\" c=x41;\">" + Nested(2000)), "Document is nested too deeply");
    EXPECT_EQ(FaultOf("<a b='&#' c=#65;'>" + Nested(2000)), "Document is nested too deeply");
}

// The value of attribute "b" of the element "a".
std::string ValueIn(const std::string& text) {
    ConfigDocument document;
    EXPECT_TRUE(document.Parse(text)) << document.ErrorDescription();
    const TiXmlElement* element = document.Root("a");
    return element != nullptr ? *element->Attribute(std::string("b")) : "none";
}

TEST(ConfigDocument, BytesThatAreNoUtf8LeaveReferencesAsTheyAre) {
    const std::string declared = R"(<?xml version="1.0" encoding="UTF-8"?>)";
    EXPECT_EQ(ValueIn(declared + "<a b='&#xe9;' c='\x80'/>"), "\xC3\xA9");
    EXPECT_EQ(ValueIn(declared + "<a b='&#xe9;' c='\xE9t\xE9 x y'/>"), "\xC3\xA9");
    EXPECT_EQ(ValueIn(declared + "<!-- \xF0 --><a b='&#xe9;'>\xE9t\xE9</a>"), "\xC3\xA9");
    EXPECT_EQ(ValueIn(declared + "<a \xEF\xBB\xBF b='&#xe9;\xEF\xBB\xBF'/>\xEF\xBB\xBF"),
              "\xC3\xA9\xEF\xBB\xBF");
    EXPECT_EQ(ValueIn(declared + "<a b='&#xe9;'/> behind it\xF0"), "\xC3\xA9");
    EXPECT_EQ(ValueIn(declared + "<a b=\"&#xe9;\xE9'<\"/>"), "\xC3\xA9\xE9'<")
        << "no end of this value";
    EXPECT_EQ(ValueIn("<a b='&#xe9;' c='\xF0'/>"), "\xE9") << "nothing is declared";
    EXPECT_EQ(ValueIn("<?xml encoding='&#x55;tf-8'?><a b='&#xe9;'/>"), "\xC3\xA9");
    EXPECT_EQ(ValueIn("<?xml encoding='latin1'?><a b='&#xe9;\xF0'/>"), "\xE9\xF0");
}

TEST(ConfigDocument, WhatWouldSwallowMarkupIsReadByteByByte) {
    const std::string declared = R"(<?xml version="1.0" encoding="UTF-8"?>)";
    for (const std::string_view rest :
         {"<a b='&#xe9;' c='\xF0'/>", "<a b='&#xe9;' c='x\xE2\x82'/>", "<a b='&#xe9;'>\xC3</a>",
          "<a b='&#xe9;'>\xF0\x90\x80</a>"}) {
        EXPECT_EQ(ValueIn(declared + std::string(rest)), "\xE9") << rest;
        EXPECT_EQ(ValueIn("\xEF\xBB\xBF" + std::string(rest)), "\xE9") << rest;
    }
}

TEST(ConfigDocument, BytesThatAreNoTextAreKept) {
    for (const std::string_view value : {"\xEF\xBF\xBE", "\xEF\xBF\xBF", "\xEF\xBB\xBF"}) {
        ConfigDocument document;
        ASSERT_TRUE(document.Parse("<a b='" + std::string(value) + "'/>"));
        EXPECT_EQ(*document.Root("a")->Attribute(std::string("b")), value);
    }
}

TEST(ConfigDocument, CutTextEndsWithoutReadingPastIt) {
    for (const std::string_view text : {"<a b=\"\xF0",
                                        "<a>\xE2",
                                        "<a>\xEF",
                                        "<a>\xEF\xBB",
                                        "<",
                                        "<a",
                                        "<a ",
                                        "<a b",
                                        "<a b=",
                                        "<a b=\"",
                                        "</",
                                        "<!",
                                        "<!--",
                                        "<![CDATA[",
                                        "<?xml",
                                        "<?xml ",
                                        "<?xml version",
                                        "<?",
                                        "<?xml version=\"1.0\" ",
                                        "<a>&#x",
                                        "<a>&#",
                                        "<a>&",
                                        "<a>&#xZ;",
                                        "<a>&lt",
                                        "\xEF\xBB\xBF",
                                        "\xEF\xBB\xBF<a b=\"\xF0"}) {
        ConfigDocument document;
        // The parser forgives some of these; then there is no element.
        if (document.Parse(std::string(text))) {
            EXPECT_EQ(document.Root("a"), nullptr) << text;
        } else {
            EXPECT_NE(document.ErrorDescription(), "") << text;
        }
    }
}

TEST(ConfigDocument, DescriptionsAreTheParsersOwn) {
    EXPECT_EQ(FaultOf(""), "Error document empty.");
    EXPECT_EQ(FaultOf("no markup"), "Error document empty.");
    EXPECT_EQ(FaultOf("<a><b></a>"), "Error reading end tag.");
    EXPECT_EQ(FaultOf("<?xml "), "Error parsing Declaration.");
}

// Why a file could not be loaded, "none" when it could.
std::string LoadFaultOf(const std::string& path) {
    ConfigDocument document;
    return document.Load(path) ? "none" : document.ErrorDescription();
}

TEST(ConfigDocument, FileThatCannotBeReadCountsAsOneThatCannotBeOpened) {
    const TempDirectory directory;
    const std::string path = directory / "config";
    WriteFile(path, "<a b='1'/>");
    {
        const LibcFault fault(LibcCall::kRead, EIO);
        EXPECT_EQ(LoadFaultOf(path), "Failed to open file");
    }
    {
        const LibcFault fault(LibcCall::kFstat, EIO);
        EXPECT_EQ(LoadFaultOf(path), "Failed to open file");
    }
    EXPECT_EQ(LoadFaultOf(path), "none");
}

TEST(ConfigDocument, FileIsReadInPiecesAndAsFarAsItGoes) {
    const TempDirectory directory;
    const std::string path = directory / "config";
    WriteFile(path, "<a b='1'/>");
    {
        const LibcFault pieces(LibcCall::kRead, LibcFault::kHalfCount, 1, 2);
        EXPECT_EQ(LoadFaultOf(path), "none");
        EXPECT_EQ(pieces.Calls(), 3U);
    }
    // It has become shorter since its size was looked at.
    const LibcFault end(LibcCall::kRead, LibcFault::kZeroCount);
    EXPECT_EQ(LoadFaultOf(path), "Error document empty.");
}

TEST(ConfigDocument, FilesUpToTheLimitAreRead) {
    const TempDirectory directory;
    const std::string path = directory / "file";
    WriteFile(path, "<a/>");
    for (const std::size_t past : {std::size_t{0}, std::size_t{1}}) {
        std::filesystem::resize_file(path, ConfigDocument::kMaxBytes + past);
        ConfigDocument document;
        EXPECT_EQ(document.Load(path), past == 0);
        EXPECT_EQ(document.ErrorDescription(), past == 0 ? "" : "Document is too large");
    }
}

TEST(ConfigDocument, TextAfterANulIsNotRead) {
    std::string text = "<a b='1'/>";
    text += '\0';
    text += Repeat("<a>", 5000);
    EXPECT_EQ(FaultOf(text), "none");
}

TEST(ConfigDocument, AttributeOfTheRootIsEmptyWhereItIsMissing) {
    ConfigDocument document;
    ASSERT_TRUE(document.Parse("<a b='c'/>"));
    EXPECT_EQ(document.RootAttribute("a", "b"), "c");
    EXPECT_EQ(document.RootAttribute("a", "x"), "");
    EXPECT_EQ(document.RootAttribute("x", "b"), "");
}

TEST(ConfigDocument, LineEndsAreNormalised) {
    ConfigDocument document;
    ASSERT_TRUE(document.Parse("<a\r\nb='1\r\n2\r3'\r/>"));
    EXPECT_EQ(*document.Root("a")->Attribute(std::string("b")), "1\n2\n3");
}

TEST(ConfigDocument, ByteOrderMarkIsSkipped) {
    ConfigDocument document;
    ASSERT_TRUE(document.Parse("\xEF\xBB\xBF<a b='\xC3\xA9&#233;'/>"));
    EXPECT_EQ(*document.Root("a")->Attribute(std::string("b")), "\xC3\xA9\xC3\xA9");
}

TEST(ConfigDocument, AttributesOfOneElementAreBounded) {
    std::string attributes;
    for (std::size_t i = 0; i < ConfigDocument::kMaxAttributes; ++i) {
        attributes += " a" + std::to_string(i) + "='1'";
    }
    EXPECT_EQ(FaultOf("<r" + attributes + "/>"), "none");
    EXPECT_EQ(FaultOf("<r" + attributes + " one='more'/>"), "Element has too many attributes");
}

std::size_t TreeDepth(const TiXmlNode& node) {
    std::size_t deepest = 0;
    for (const TiXmlElement* child = node.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        deepest = std::max(deepest, 1 + TreeDepth(*child));
    }
    return deepest;
}

// The scan must never find less nesting than the parser builds, whatever the text.
TEST(ConfigDocument, RandomMarkupNeverNestsDeeperThanTheScanSays) {
    constexpr std::array<std::string_view, 40> kPieces{
        "<a>",  "<a>",    "<b>",       "</a>", "</b>",      "<a/>",      "<",        ">",
        "/",    "/>",     "\"",        "'",    "=",         " ",         "a",        "<!--",
        "-->",  "-",      "<![CDATA[", "]]>",  "<?xml",     "?>",        "version=", "encoding=\"",
        "<!",   "<?",     "&#x41;",    "&#",   "\xF0",      "\xE2\x82",  "\xC3\xA9", "<a b=\"",
        "\" >", "<a b='", "</",        "\n",   "UTF-8\"?>", "VERSION='", "_",        "<a b=c>"};
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same texts on every run
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> piece(0, kPieces.size() - 1);
    std::uniform_int_distribution<int> length(1, 40);
    std::size_t deepest = 0;
    for (int round = 0; round < 100'000; ++round) {
        std::string text = round % 2 == 0 ? "<a>" : "";
        for (int i = length(random); i > 0; --i) {
            text += kPieces.at(piece(random));
        }
        ConfigDocument document;
        document.Parse(text);
        const TiXmlNode* root = document.Root("a");
        if (root == nullptr) {
            continue;
        }
        const std::size_t depth = TreeDepth(*root->GetDocument());
        deepest = std::max(deepest, depth);
        const MarkupScanner scanner(text, MarkupScanner::Reading::kAsDeclared,
                                    ConfigDocument::kMaxDepth);
        if (!scanner.SwallowsMarkup()) {
            ASSERT_LE(depth, scanner.Depth()) << text;
        }
    }
    EXPECT_GT(deepest, 3U);
}

}  // namespace
