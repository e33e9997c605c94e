#ifndef ZYN_TESTS_SUPPORT_SHA256_H
#define ZYN_TESTS_SUPPORT_SHA256_H

// The SHA-256 digest, for tests that compare many texts with those of another program.

#include <string>
#include <string_view>

// 64 lower-case hexadecimal digits.
[[nodiscard]] std::string Sha256(std::string_view bytes);

#endif
