#pragma once

// Verification of a detached signature: RSA (PKCS #1 v1.5) with SHA-256 over the data itself, as
// raw bytes. Any thread may call these; nothing is kept between calls.

#include <string_view>
#include <vector>

#include "trust/release_keys.h"

namespace Vantrell {

// True when one of the keys verifies the signature; the number of the first such key is logged. An
// empty signature is not valid. A key that cannot be read is treated as one that did not sign.
[[nodiscard]] bool VerifyDigestSignature(std::string_view data, std::string_view signature,
                                         const std::vector<ReleaseKey>& keys);

// The same with the release keys of this build.
[[nodiscard]] bool VerifyDigestSignature(std::string_view data, std::string_view signature);

}  // namespace Vantrell
