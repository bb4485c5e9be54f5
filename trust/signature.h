#pragma once

// The test of a detached signature: raw RSA (PKCS #1 v1.5) with SHA-256 over the data itself.
// Any thread may call these; nothing is kept between calls.

#include <string_view>
#include <vector>

#include "trust/release_keys.h"

namespace Vantrell {

// True when one of the keys verifies the signature; the first that does is logged by its
// number. An empty signature is never valid. Whether a key could not be read or just did not
// sign is not told.
[[nodiscard]] bool VerifyDigestSignature(std::string_view data, std::string_view signature,
                                         const std::vector<ReleaseKey>& keys);

// Against the release keys of this build.
[[nodiscard]] bool VerifyDigestSignature(std::string_view data, std::string_view signature);

}  // namespace Vantrell
