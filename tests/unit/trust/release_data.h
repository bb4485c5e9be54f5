#pragma once

// The signed releases and the public keys of tests/data.

#include <string>

#include "base/file_content.h"
#include "trust/release_keys.h"

namespace Vantrell {

inline std::string ReleaseData(const std::string& name) {
  return ReadWholeFile(TEST_DATA_DIR "/" + name);
}

// `der` must live longer than the key.
inline ReleaseKey KeyOf(const std::string& der) {
  return {reinterpret_cast<const unsigned char*>(der.data()), static_cast<uint32_t>(der.size())};
}

}  // namespace Vantrell
