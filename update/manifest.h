#pragma once

// Reading of the update server's offer. Here, and nowhere else, file names from the network are
// checked before they become paths. Any thread may call it; it logs nothing.

#include <string>

#include "update/update.h"

namespace Vantrell {

// The caller passes an empty `error`. True: `manifest` is complete. False: `error` says why, in
// words that can follow "unreadable manifest: ", and `manifest` has no meaning. Values of another
// JSON type are converted. Refused are an empty version, name or URL, a hash of a wrong length, a
// name that is not safe as a path, and "files" that is not an array with elements.
[[nodiscard]] bool ParseManifest(const std::string& body, UpdateManifest& manifest,
                                 std::string& error);

}  // namespace Vantrell
