#pragma once

// Decides whether an offered release may be staged: three witnesses must publish the same signed
// release, and this release must name the digest of the offered manifest. A decision runs on the
// caller's thread, blocks it for up to nine requests, one after the other, and takes no lock.

#include <array>
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

// The URLs of the three files of a release on one witness: its block, the signature of this, and
// the digest of the manifest for a component. `baseUrl` has no slash at the end.
std::array<std::string, 3> WitnessFileUrls(const std::string& baseUrl, const std::string& channel,
                                           const std::string& version,
                                           const std::string& component);

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
