#include "trust/release_keys.h"

#include "trust/release_key_bytes.h"

namespace Vantrell {

std::vector<ReleaseKey> ReleaseKeys() {
  return {{ReleaseKey1, sizeof ReleaseKey1}, {ReleaseKey2, sizeof ReleaseKey2}};
}

}  // namespace Vantrell
