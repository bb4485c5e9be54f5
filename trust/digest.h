#pragma once

// SHA-256, and the form in which digests are compared: 64 lower-case hexadecimal characters. Any
// thread may call these functions; they log nothing.

#include <string>
#include <string_view>

namespace Vantrell {

constexpr size_t DigestBytes = 32;
constexpr size_t DigestLength = 64;  // characters of the text form

// The text form of a digest. `bytes` points to exactly DigestBytes bytes.
std::string HexDigest(const unsigned char* bytes);

// Whether a text has the form of a digest, in lower case.
[[nodiscard]] bool IsDigest(std::string_view text);

// The digest of `data` as text. Empty if hashing failed.
std::string Sha256Hex(std::string_view data);

// The digest of a file as text. The file is read in blocks, so memory use does not depend on its
// size. False for a symbolic link and for a file that cannot be read to its end; `hex` is then
// unchanged.
[[nodiscard]] bool Sha256File(const std::string& path, std::string& hex);

// Prepares a digest, a block header or a version from outside for a comparison: trims it as
// TrimSetting does and converts ASCII letters to lower case.
std::string NormalizeDigest(std::string value);

}  // namespace Vantrell
