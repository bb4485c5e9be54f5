#include "update/installed_record.h"

#include <algorithm>
#include <string_view>

#include "base/lines.h"
#include "trust/digest.h"

namespace Vantrell {

std::string InstalledRecordLine(const ManifestFile& file) {
  return file.name + " " + file.sha256 + "\n";
}

bool ListsEveryFile(const std::string& record, const UpdateManifest& manifest) {
  if (record.empty()) return false;
  return std::all_of(manifest.files.begin(), manifest.files.end(), [&](const ManifestFile& file) {
    return record.find(InstalledRecordLine(file)) != std::string::npos;
  });
}

std::string RecordedPackageHash(const std::string& record) {
  constexpr std::string_view PackageEnd = ".deb ";
  for (const std::string& line : SplitLines(record)) {
    if (line.size() < PackageEnd.size() + DigestLength) continue;
    std::string hash = line.substr(line.size() - DigestLength);
    if (IsDigest(hash) && line.ends_with(std::string(PackageEnd) + hash)) return hash;
  }
  return "";
}

}  // namespace Vantrell
