#pragma once

// The public keys whose private halves sign releases. They are constants of the build.

#include <cstdint>
#include <vector>

namespace Vantrell {

// A view of constant bytes: a DER-encoded SubjectPublicKeyInfo.
struct ReleaseKey {
  const unsigned char* data = nullptr;
  uint32_t size = 0;  // bytes
};

// Both keys, in the order that gives them their numbers in the log. Either one suffices to
// sign a release. Any thread may call it.
std::vector<ReleaseKey> ReleaseKeys();

}  // namespace Vantrell
