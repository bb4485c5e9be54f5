#pragma once

// Reads the update server's offer. The one place where file names from the network are judged
// before they become paths. No shared state; any thread may call it, and nothing is logged.

#include <string>

#include "update/update.h"

namespace Vantrell {

// `error` comes in empty. True: `manifest` is complete. False: `error` says why, in words fit
// to follow "unreadable manifest: ", and `manifest` is to be thrown away. Wrong JSON types are
// read as well as they can be; only what is empty, or of a wrong length, refuses.
[[nodiscard]] bool ParseManifest(const std::string& body, UpdateManifest& manifest,
                                 std::string& error);

}  // namespace Vantrell
