#include "trust/signature.h"

#include <gnutls/abstract.h>
#include <gnutls/gnutls.h>

#include <limits>
#include <memory>

#include "base/log_line.h"

namespace Vantrell {
namespace {

struct PublicKeyFree {
  void operator()(gnutls_pubkey_t key) const { gnutls_pubkey_deinit(key); }
};
using PublicKey = std::unique_ptr<gnutls_pubkey_st, PublicKeyFree>;

// The length of a GnuTLS datum has 32 bits. Of a longer text only the first part would be verified,
// and the rest would be accepted unsigned.
bool FitsDatum(std::string_view bytes) {
  return bytes.size() <= std::numeric_limits<unsigned>::max();
}

// GnuTLS declares its inputs as mutable data but does not write to them.
gnutls_datum_t View(const void* bytes, size_t size) {
  return {static_cast<unsigned char*>(const_cast<void*>(bytes)), static_cast<unsigned>(size)};
}

// Null when GnuTLS cannot read the bytes as a key.
PublicKey ImportKey(const ReleaseKey& releaseKey) {
  gnutls_pubkey_t raw = nullptr;
  if (gnutls_pubkey_init(&raw) < 0) return nullptr;
  PublicKey key(raw);
  const gnutls_datum_t der = View(releaseKey.data, releaseKey.size);
  if (gnutls_pubkey_import(key.get(), &der, GNUTLS_X509_FMT_DER) < 0) return nullptr;
  return key;
}

}  // namespace

bool VerifyDigestSignature(std::string_view data, std::string_view signature,
                           const std::vector<ReleaseKey>& keys) {
  if (signature.empty() || !FitsDatum(signature) || !FitsDatum(data)) return false;
  const gnutls_datum_t dataView = View(data.data(), data.size());
  const gnutls_datum_t signatureView = View(signature.data(), signature.size());

  for (size_t index = 0; index < keys.size(); ++index) {
    // A key that cannot be read is skipped: the next one may have signed.
    const PublicKey key = ImportKey(keys[index]);
    if (!key) continue;
    const int verdict =
        gnutls_pubkey_verify_data2(key.get(), GNUTLS_SIGN_RSA_SHA256, 0, &dataView, &signatureView);
    if (verdict < 0) continue;
    LogLine("[Update] digest signature verified against release key %zu", index + 1);
    return true;
  }
  return false;
}

bool VerifyDigestSignature(std::string_view data, std::string_view signature) {
  return VerifyDigestSignature(data, signature, ReleaseKeys());
}

}  // namespace Vantrell
