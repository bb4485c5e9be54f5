#pragma once

// The public keys that releases are verified with. They are constants of the build.

#include <cstdint>
#include <vector>

namespace Vantrell {

// A view of constant bytes: a DER-encoded SubjectPublicKeyInfo.
struct ReleaseKey {
  const unsigned char* data = nullptr;
  uint32_t size = 0;  // bytes
};

// Both keys. Their order gives them their numbers in the log. A signature by one of them is enough.
// Any thread may call it.
std::vector<ReleaseKey> ReleaseKeys();

}  // namespace Vantrell
