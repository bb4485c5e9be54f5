#pragma once

// The two small texts that tie a signature to the files of an offer: the canonical text of a
// manifest, whose SHA-256 is the manifest digest, and the release block, the signed file that
// carries this digest for each component. Pure functions, safe on any thread.

#include <string>

namespace Vantrell {

struct UpdateManifest;

// SHA-256 over version, component and each file's name, hash and size; not over URLs, commit
// or fingerprint, so that a server may move its downloads. The order of the files and repeated
// entries do not matter. Empty if hashing failed.
std::string ManifestDigest(const UpdateManifest& manifest, const std::string& component);

// Reads the digest of `component` from a block, normalized: 64 characters, not examined
// further. False when the block is not for this version or has no well-formed line for the
// component. The signature is the caller's to test.
[[nodiscard]] bool ParseReleaseBlock(const std::string& block, const std::string& version,
                                     const std::string& component, std::string& digest);

}  // namespace Vantrell
