#pragma once

// Whether an offered release may be staged: three witnesses must publish the same signed
// release, and it must name the digest of this very manifest. Everything here runs on the
// caller's thread, blocks it for up to nine requests, one after the other, and takes no lock.

#include <functional>
#include <string>
#include <vector>

#include "trust/release_keys.h"

namespace Vantrell {

struct UpdateManifest;

// Gets one small file. True: `body` is the whole answer. False: `error` says why, in words fit
// to follow "unreachable: ".
using WitnessFetch =
    std::function<bool(const std::string& url, std::string& body, std::string& error)>;

// The check that staging runs before it touches the disk. `channel` is "dev", "beta" or
// "prod". What a witness or a key refused is already in the log when this returns; `error` is
// assigned on false alone.
[[nodiscard]] bool VerifyRelease(const UpdateManifest& manifest, const std::string& component,
                                 const std::string& channel, std::string& error);

// The same with its outside dependencies passed in: base URLs without a slash at the end,
// the fetch, and the keys of which one must have signed.
[[nodiscard]] bool VerifyReleaseQuorum(const UpdateManifest& manifest, const std::string& component,
                                       const std::string& channel,
                                       const std::vector<std::string>& witnesses,
                                       const WitnessFetch& fetch,
                                       const std::vector<ReleaseKey>& keys, std::string& error);

}  // namespace Vantrell
