#pragma once

// Decides whether an offered release may be staged: three witnesses must publish the same signed
// release, and this release must name the digest of the offered manifest. Both functions run on
// the caller's thread, block it for up to nine requests, one after the other, and take no lock.

#include <functional>
#include <string>
#include <vector>

#include "trust/release_keys.h"

namespace Vantrell {

struct UpdateManifest;

// Gets one small file. True: `body` is the whole answer. False: `error` says why, in words that can
// follow "unreachable: ".
using WitnessFetch =
    std::function<bool(const std::string& url, std::string& body, std::string& error)>;

// Proves a release with the witnesses and keys of this build, before anything of it is fetched or
// written to disk. `channel` is "dev", "beta" or "prod". A refusal by a witness or a key is already
// logged when this returns. `error` is assigned only on false.
[[nodiscard]] bool VerifyRelease(const UpdateManifest& manifest, const std::string& component,
                                 const std::string& channel, std::string& error);

// The same with the dependencies as arguments: the base URLs of the witnesses, without a slash at
// the end; the fetch; the keys, one of which must have signed.
[[nodiscard]] bool VerifyReleaseQuorum(const UpdateManifest& manifest, const std::string& component,
                                       const std::string& channel,
                                       const std::vector<std::string>& witnesses,
                                       const WitnessFetch& fetch,
                                       const std::vector<ReleaseKey>& keys, std::string& error);

}  // namespace Vantrell
