#include "trust/release_block.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "base/lines.h"
#include "trust/digest.h"
#include "update/update.h"

namespace Vantrell {
namespace {

constexpr size_t HeaderLines = 2;  // format and version

}  // namespace

std::string ManifestDigest(const UpdateManifest& manifest, const std::string& component) {
  std::vector<std::string> lines;
  lines.reserve(manifest.files.size());
  for (const ManifestFile& file : manifest.files) {
    const std::string size = std::to_string(static_cast<uint64_t>(file.size));
    lines.push_back(file.name + ":" + file.sha256 + ":" + size);
  }
  // Whole lines are sorted, the colon after the name included: "a.b" comes before "a". Publishers
  // sort in the same way.
  std::sort(lines.begin(), lines.end());
  lines.erase(std::unique(lines.begin(), lines.end()), lines.end());

  std::string text = manifest.version + "|" + component;
  for (const std::string& line : lines) text += "\n" + line;
  return Sha256Hex(text);
}

bool ParseReleaseBlock(const std::string& block, const std::string& version,
                       const std::string& component, std::string& digest) {
  const std::vector<std::string> lines = SplitLines(block);
  if (lines.size() < HeaderLines) return false;
  if (NormalizeDigest(lines[0]) != ReleaseBlockFormat) return false;
  if (NormalizeDigest(lines[1]) != NormalizeDigest(version)) return false;

  for (size_t index = HeaderLines; index < lines.size(); ++index) {
    const std::string& line = lines[index];
    const size_t blank = line.find(' ');
    if (blank == std::string::npos || line.substr(0, blank) != component) continue;
    // Only the first line of the component is used, even if a valid one follows.
    digest = NormalizeDigest(line.substr(blank + 1));
    return digest.size() == DigestLength;
  }
  return false;
}

}  // namespace Vantrell
