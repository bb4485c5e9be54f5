#pragma once

// The two texts that connect a signature with the files of an offer: the canonical text of a
// manifest, whose SHA-256 is the manifest digest, and the release block, the signed file that
// contains this digest for each component. Pure functions, safe on any thread.

#include <string>

namespace Vantrell {

struct UpdateManifest;

constexpr char ReleaseBlockFormat[] = "vantrell-release-v1";  // the first line of a block

// The SHA-256 of the version, the component, and the name, hash and size of each file. URLs, commit
// and fingerprint are not part of it, so a server may move its downloads. The order of the files
// and repeated entries make no difference. Empty if hashing failed.
std::string ManifestDigest(const UpdateManifest& manifest, const std::string& component);

// Reads the digest of `component` from a block. `digest` is normalized and has 64 characters, which
// are not checked further. False when the block is not for this version or has no well-formed line
// for the component; `digest` then has no meaning. The caller must verify the signature first.
[[nodiscard]] bool ParseReleaseBlock(const std::string& block, const std::string& version,
                                     const std::string& component, std::string& digest);

}  // namespace Vantrell
