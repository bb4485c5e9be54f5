#pragma once

// The signed releases and the public keys of tests/data.

#include <string>

#include "base/file_content.h"
#include "trust/release_keys.h"
#include "update/manifest.h"

namespace Vantrell {

// The offer that release.block covers, and its digest.
inline const UpdateManifest OfferOfRelease = {
    "2.4.0", "", "", {{"harbor.deb", std::string(64, 'a'), 7, ""}}};
inline const std::string DigestOfRelease =
    "8adc4a7bac46cb184020f6429057f5318ef73b8f0986d4576d03d9469b7ed3c4";

inline std::string ReleaseData(const std::string& name) {
  return ReadWholeFile(TEST_DATA_DIR "/" + name);
}

// `der` must live longer than the key.
inline ReleaseKey KeyOf(const std::string& der) {
  return {reinterpret_cast<const unsigned char*>(der.data()), static_cast<uint32_t>(der.size())};
}

}  // namespace Vantrell
