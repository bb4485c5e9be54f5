#include "update/installed_record.h"

#include <algorithm>
#include <string_view>

#include "base/lines.h"

namespace Vantrell {
namespace {

constexpr size_t HashDigits = 64;

}  // namespace

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
    if (line.size() < PackageEnd.size() + HashDigits) continue;
    std::string hash = line.substr(line.size() - HashDigits);
    const bool isHash = hash.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (isHash && line.ends_with(std::string(PackageEnd) + hash)) return hash;
  }
  return "";
}

}  // namespace Vantrell
