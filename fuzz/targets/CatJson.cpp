// The JSON that zynlog-cat writes: a parser that knows nothing of it finds the text, and behind it
// the bytes wherever they are not UTF-8. The input is the length of what stands in the buffer
// before, and the text.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "MemoryStream/MemoryStream.h"
#include "Support/Utf8.h"
#include "TraceData/text/TextFile.h"
#include "targets/LogCase.h"
#include "zynlogcat/JsonText.h"

namespace {

unsigned int ByteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

std::size_t LengthFrom(unsigned int lead) {
    return lead < 0x80   ? 1
           : lead < 0xC0 ? 0
           : lead < 0xE0 ? 2
           : lead < 0xF0 ? 3
           : lead < 0xF8 ? 4
                         : 0;
}

// By the number of the character that it stands for.
bool IsCharacter(std::string_view text) {
    const std::size_t length = LengthFrom(ByteAt(text, 0));
    if (length != text.size()) {
        return false;
    }
    constexpr std::array<std::uint32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
    std::uint32_t number = length == 1 ? ByteAt(text, 0) : ByteAt(text, 0) & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((ByteAt(text, i) & 0xC0U) != 0x80) {
            return false;
        }
        number = number << 6U | (ByteAt(text, i) & 0x3FU);
    }
    return number >= kLeast[length] && number <= 0x10FFFF && !(number >= 0xD800 && number < 0xE000);
}

// Whether a character begins so.
bool BeginsCharacter(const std::string& text) {
    if (IsCharacter(text)) {
        return true;
    }
    const std::size_t length = LengthFrom(ByteAt(text, 0));
    constexpr std::string_view kNext = "\x80\x8f\x90\x9f\xa0\xbf";
    return text.size() < length && std::any_of(kNext.begin(), kNext.end(), [&](char next) {
               return BeginsCharacter(text + next);
           });
}

// Each longest part that begins a character and is none becomes U+FFFD.
std::string Repaired(std::string_view text) {
    std::string repaired;
    while (!text.empty()) {
        std::size_t count = 1;
        while (count < text.size() && !IsCharacter(text.substr(0, count)) &&
               BeginsCharacter(std::string(text.substr(0, count + 1)))) {
            ++count;
        }
        repaired += IsCharacter(text.substr(0, count)) ? std::string(text.substr(0, count))
                                                       : "\xef\xbf\xbd";
        text.remove_prefix(count);
    }
    return repaired;
}

std::string FromBase64(const std::string& text) {
    static constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned int count = 0;
    Require(text.size() % 4 == 0, "base64 without its end");
    for (const char digit : text.substr(0, text.find('='))) {
        Require(kDigits.find(digit) != std::string_view::npos, "no base64");
        bits = bits << 6U | static_cast<std::uint32_t>(kDigits.find(digit));
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFFU);
        }
    }
    return bytes;
}

}  // namespace

int ZynFuzzCatJson(FuzzInput input) {
    FuzzScript script(input);
    // So that texts lie at all places of the buffer.
    const std::string before(script.U16(), ' ');
    const PlacedBytes placed(script.Rest(), kReadSlack);
    const std::string_view text(placed.Data(), placed.Size());
    const std::string repaired = Repaired(text);
    const bool valid = repaired == text;

    const MemoryFile file;
    TextFile out(file.Path(), nullptr);
    out.Write(before);
    out.Write("{\"first\":0");
    PutJsonMember(",\"text\":", text, true, out);
    PutJsonMember(",\"absent\":", text, false, out);
    out.Write("}\n");
    out.Close();
    const std::string written = file.Content();
    Require(written.find('\n') == written.size() - 1, "more than one line");
    Require(std::all_of(written.begin(), written.end() - 1,
                        [](char c) { return static_cast<unsigned char>(c) >= 0x20; }),
            "control characters");
    const nlohmann::json object = nlohmann::json::parse(written);
    RequireEqual(object.at("text").get<std::string>(), repaired, "another text");
    Require(object.at("absent").is_null(), "what is absent is there");
    Require(object.contains("text_base64") != valid, "bytes where none are needed, or none");
    if (!valid) {
        RequireEqual(FromBase64(object.at("text_base64").get<std::string>()), text, "other bytes");
    }
    Require(object.size() == (valid ? 3 : 4), "other members");
    Require(IsUtf8(text) == valid, "UTF-8 or not");
    RequireEqual(RepairedUtf8(text), repaired, "another text without JSON");
    RequireEqual(nlohmann::json::parse(JsonString(text)).get<std::string>(), repaired,
                 "another string");
    return 0;
}
