#include "update/installed_record.h"

#include <algorithm>

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

}  // namespace Vantrell
