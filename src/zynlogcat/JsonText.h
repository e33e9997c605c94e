// Strings and numbers of JSON and CSV, written straight into the output's buffer.
#ifndef ZYN_ZYNLOGCAT_JSONTEXT_H
#define ZYN_ZYNLOGCAT_JSONTEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "TraceData/text/TextFile.h"

// Writes text as a JSON string, quotes included, with U+FFFD for each maximal part that is no
// UTF-8; returns whether there was none. kReadSlack bytes behind the text are readable. Throws
// as TextFile does.
bool PutJsonString(std::string_view text, TextFile& out);

// The bytes as a JSON string in base64.
[[nodiscard]] std::string Base64String(std::string_view bytes);

// Writes `,"<name>":` and the text as a string, and behind it, if it is not all UTF-8, a member
// "<name>_base64". head: `,"<name>":`. A text for which `there` is false is null.
void PutJsonMember(std::string_view head, std::string_view text, bool there, TextFile& out);

// The text as PutJsonString writes it, for texts that have no readable bytes behind them.
[[nodiscard]] std::string JsonString(std::string_view text);

// A short text of known size.
inline char* PutLiteral(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

// At most 20 digits; needs as many writable characters at out.
char* PutDecimal(char* out, std::uint64_t value) noexcept;

#endif
