#include "trust/digest.h"

#include <fcntl.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <memory>
#include <vector>

#include "base/descriptor.h"
#include "settings/settings_file.h"

namespace Vantrell {
namespace {

constexpr size_t HashBlockBytes = 65536;

// gnutls_hash_deinit both gives the result and frees; without a place for the result it frees.
struct HashDrop {
  void operator()(gnutls_hash_hd_t hash) const { gnutls_hash_deinit(hash, nullptr); }
};
using HashContext = std::unique_ptr<hash_hd_st, HashDrop>;

bool HashToEnd(int file, gnutls_hash_hd_t hash) {
  std::vector<char> block(HashBlockBytes);
  for (;;) {
    const ssize_t got = read(file, block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    (void)gnutls_hash(hash, block.data(), static_cast<size_t>(got));
  }
}

}  // namespace

std::string HexDigest(const unsigned char* bytes) {
  constexpr char Digits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(DigestLength);
  for (size_t index = 0; index < DigestBytes; ++index) {
    hex += Digits[bytes[index] >> 4];
    hex += Digits[bytes[index] & 0x0f];
  }
  return hex;
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
  // Part of a file must never yield a digest.
  if (!HashToEnd(file.Number(), hash.get())) return false;

  unsigned char digest[DigestBytes];
  gnutls_hash_deinit(hash.release(), digest);
  hex = HexDigest(digest);
  return true;
}

std::string NormalizeDigest(std::string value) {
  value = TrimSetting(value);
  // No locale is ever set: this folds ASCII letters and leaves other bytes alone.
  for (char& byte : value) byte = static_cast<char>(tolower(static_cast<unsigned char>(byte)));
  return value;
}

}  // namespace Vantrell
