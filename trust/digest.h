#pragma once

// SHA-256, and the one form in which digests are compared: 64 lower-case hexadecimal
// characters. Any thread may call everything here; nothing here logs or throws on bad input.

#include <string>
#include <string_view>

namespace Vantrell {

constexpr size_t DigestBytes = 32;
constexpr size_t DigestLength = 64;  // of its text

// `bytes` are exactly DigestBytes.
std::string HexDigest(const unsigned char* bytes);

// Empty if hashing failed.
std::string Sha256Hex(std::string_view data);

// Reads the file in steps: memory does not grow with it. False, and `hex` as it was, for a
// symbolic link and for whatever cannot be read to its end.
[[nodiscard]] bool Sha256File(const std::string& path, std::string& hex);

// The tolerant step for digests, block headers and versions from outside: trimmed as a setting
// is, ASCII letters in lower case.
std::string NormalizeDigest(std::string value);

}  // namespace Vantrell
