#pragma once

// Reading of the update server's offer. Here, and nowhere else, file names from the network are
// checked before they become paths. Any thread may call it; it logs nothing.

#include <string>

#include "update/update.h"

namespace Vantrell {

// The caller passes an empty `error`. True: `manifest` is complete. False: `error` says why, in
// words that can follow "unreadable manifest: ", and `manifest` has no meaning. A value of another
// JSON type is converted; only an empty text, or a hash of a wrong length, is refused.
[[nodiscard]] bool ParseManifest(const std::string& body, UpdateManifest& manifest,
                                 std::string& error);

}  // namespace Vantrell
