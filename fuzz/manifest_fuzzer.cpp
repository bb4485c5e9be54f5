// Feeds arbitrary answers of an update server to the reader of manifests. What it accepts must be
// complete, and no name may lead out of its folder.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>

#include "fuzz/require.h"
#include "trust/release_block.h"
#include "update/manifest.h"

namespace Vantrell {
namespace {

void CheckFile(const ManifestFile& file) {
  Require(!file.name.empty() && !file.url.empty(), "a file without a name or URL");
  Require(file.sha256.size() == 64, "a hash of a wrong length");
  const auto path = (std::filesystem::path("/staging") / file.name).lexically_normal();
  Require(path.string().starts_with("/staging/"), "a name that leads out of its folder");
}

void CheckDigest(UpdateManifest manifest) {
  const std::string digest = ManifestDigest(manifest, "component");
  Require(digest.size() == 64, "a digest of a wrong length");
  std::reverse(manifest.files.begin(), manifest.files.end());
  manifest.files.push_back(manifest.files.front());
  for (ManifestFile& file : manifest.files) file.url += "x";
  Require(ManifestDigest(manifest, "component") == digest,
          "a digest that depends on order, repetition or URL");
  manifest.files.front().name += ":";  // no name of a manifest has one, so the line is new
  Require(ManifestDigest(manifest, "component") != digest, "a digest that ignores a name");
}

}  // namespace
}  // namespace Vantrell

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Vantrell::UpdateManifest manifest;
  std::string error;
  const std::string body(data, data + size);
  if (!Vantrell::ParseManifest(body, manifest, error)) {
    Vantrell::Require(!error.empty(), "a refusal without a reason");
    return 0;
  }
  Vantrell::Require(!manifest.version.empty() && !manifest.files.empty(), "an empty manifest");
  for (const auto& file : manifest.files) Vantrell::CheckFile(file);
  Vantrell::CheckDigest(manifest);
  return 0;
}
