#include <gtest/gtest.h>

#include <random>
#include <string>

#include "MemoryStream/MemoryStream.h"
#include "Support/Utf8.h"
#include "testing/process/Files.h"
#include "zynlogcat/JsonText.h"

namespace {

struct Put {
    std::string json;
    bool valid;
};

Put PutString(const std::string& text) {
    const TempDirectory directory;
    const std::string path = directory / "out";
    TextFile out(path, {});
    const std::string padded = text + std::string(kReadSlack, '"');
    const bool valid = PutJsonString(std::string_view(padded).substr(0, text.size()), out);
    out.Close();
    return {ReadFile(path), valid};
}

TEST(JsonTextTest, EscapesWhatJsonRequires) {
    EXPECT_EQ(PutString("").json, R"("")");
    EXPECT_EQ(PutString("a \"b\" \\ /").json, R"("a \"b\" \\ /")");
    EXPECT_EQ(PutString("\b\t\n\f\r").json, R"("\b\t\n\f\r")");
    EXPECT_EQ(PutString(std::string("\0\x01\x1f\x7f", 4)).json, "\"\\u0000\\u0001\\u001f\x7f\"");
}

TEST(JsonTextTest, Utf8StaysAndTheRestIsReplaced) {
    EXPECT_EQ(PutString("\xC3\xA9\xF0\x9F\x98\x80").json, "\"\xC3\xA9\xF0\x9F\x98\x80\"");
    EXPECT_TRUE(PutString("\xC3\xA9").valid);
    const Put bad = PutString("a\xFF\xE2\x82z");
    EXPECT_EQ(bad.json, "\"a\xEF\xBF\xBD\xEF\xBF\xBDz\"");
    EXPECT_FALSE(bad.valid);
}

TEST(JsonTextTest, BytesThatAreNoUtf8StandOnceMoreInBase64) {
    const TempDirectory directory;
    TextFile out(directory / "out", {});
    const std::string padded = "a\xFF" + std::string(kReadSlack, 'x');
    PutJsonMember(",\"label\":", std::string_view(padded).substr(0, 2), true, out);
    PutJsonMember(",\"module\":", std::string_view(padded).substr(0, 1), true, out);
    PutJsonMember(",\"client\":", {}, false, out);
    out.Close();
    EXPECT_EQ(ReadFile(directory / "out"),
              ",\"label\":\"a\xEF\xBF\xBD\",\"label_base64\":\"Yf8=\",\"module\":\"a\","
              "\"client\":null");
}

TEST(JsonTextTest, Base64OfEveryLength) {
    EXPECT_EQ(Base64String(""), R"("")");
    EXPECT_EQ(Base64String("f"), R"("Zg==")");
    EXPECT_EQ(Base64String("fo"), R"("Zm8=")");
    EXPECT_EQ(Base64String("foo"), R"("Zm9v")");
    EXPECT_EQ(Base64String("foobar"), R"("Zm9vYmFy")");
    EXPECT_EQ(Base64String("\xFB\xFF\xFE"), R"("+//+")");
}

// Two writers, one in steps into the output's buffer and one byte by byte.
TEST(JsonTextTest, LongAndRandomTextsAreTheSameEitherWay) {
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (const std::size_t length :
         {0U, 1U, 15U, 16U, 17U, 4000U, 4063U, 4064U, 4095U, 4096U, 4097U, 20'000U, 300'000U}) {
        for (const unsigned int special : {0U, 1U, 20U, 100U}) {
            std::string text;
            while (text.size() < length) {
                text.push_back(static_cast<char>(random() % 100 < special ? random() % 256
                                                                          : 'a' + random() % 26));
            }
            const Put put = PutString(text);
            EXPECT_TRUE(put.json == JsonString(text)) << length << " " << special;
            EXPECT_EQ(put.valid, IsUtf8(text));
        }
    }
    EXPECT_EQ(PutString(std::string(10'000, '\x01')).json.size(), 60'002U);
}

TEST(JsonTextTest, NumbersAreWhole) {
    std::string out(20, ' ');
    const char* const end = PutDecimal(out.data(), UINT64_MAX);
    EXPECT_EQ(std::string(out.c_str(), static_cast<std::size_t>(end - out.data())),
              "18446744073709551615");
}

}  // namespace
