#include "trust/digest.h"

#include <fcntl.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>

#include <cctype>
#include <memory>

#include "base/descriptor.h"
#include "base/read_input.h"
#include "settings/settings_file.h"

namespace Vantrell {
namespace {

constexpr char Digits[] = "0123456789abcdef";
constexpr size_t HashBlockBytes = 65536;

// gnutls_hash_deinit() writes the digest and frees the context. With a null digest it only frees.
struct HashFree {
  void operator()(gnutls_hash_hd_t hash) const { gnutls_hash_deinit(hash, nullptr); }
};
using HashContext = std::unique_ptr<hash_hd_st, HashFree>;

}  // namespace

std::string HexDigest(const unsigned char* bytes) {
  std::string hex;
  hex.reserve(DigestLength);
  for (size_t index = 0; index < DigestBytes; ++index) {
    hex += Digits[bytes[index] >> 4];
    hex += Digits[bytes[index] & 0x0f];
  }
  return hex;
}

bool IsDigest(std::string_view text) {
  return text.size() == DigestLength && text.find_first_not_of(Digits) == std::string_view::npos;
}

std::string Sha256Hex(std::string_view data) {
  unsigned char digest[DigestBytes];
  if (gnutls_hash_fast(GNUTLS_DIG_SHA256, data.data(), data.size(), digest) < 0) return "";
  return HexDigest(digest);
}

bool Sha256File(const std::string& path, std::string& hex) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!file) return false;
  gnutls_hash_hd_t raw = nullptr;
  if (gnutls_hash_init(&raw, GNUTLS_DIG_SHA256) < 0) return false;
  HashContext hash(raw);
  const auto add = [&hash](std::string_view block) {
    gnutls_hash(hash.get(), block.data(), block.size());
  };
  // After a failed read there must be no digest of the part before it.
  if (!ReadToEnd(file.Number(), HashBlockBytes, add)) return false;

  unsigned char digest[DigestBytes];
  gnutls_hash_deinit(hash.release(), digest);
  hex = HexDigest(digest);
  return true;
}

std::string NormalizeDigest(std::string value) {
  value = TrimSetting(value);
  // The program sets no locale, so tolower() converts ASCII letters only.
  for (char& byte : value) byte = static_cast<char>(tolower(static_cast<unsigned char>(byte)));
  return value;
}

}  // namespace Vantrell
