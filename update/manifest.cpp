#include "update/manifest.h"

#include <optional>
#include <utility>

#include "base/failure.h"
#include "json/json_parser.h"
#include "json/json_value.h"
#include "trust/digest.h"

namespace Vantrell {
namespace {

ManifestFile ReadEntry(const JsonValue& entry) {
  ManifestFile file;
  file.name = entry.Get("name").AsString("");
  file.sha256 = entry.Get("sha256").AsString("");
  file.size = entry.Get("size").AsInt(0);
  file.url = entry.Get("url").AsString("");
  return file;
}

// The characters of the hash are not checked: a wrong hash does not equal that of the file.
bool IsComplete(const ManifestFile& file) {
  return !file.name.empty() && file.sha256.size() == DigestLength && !file.url.empty();
}

// Two dots are refused anywhere, within a word too. A "/" is refused at the start only, because a
// release may have subdirectories.
bool IsSafeName(const std::string& name) {
  if (name.find("..") != std::string::npos) return false;
  if (name.find(':') != std::string::npos) return false;
  return name[0] != '/' && name[0] != '\\';
}

}  // namespace

bool ParseManifest(const std::string& body, UpdateManifest& manifest, std::string& error) {
  const std::optional<JsonValue> document = ParseJson(body, &error);
  if (!document || document->kind != JsonKind::Object) {
    if (error.empty()) error = "response is not a JSON object";
    return false;
  }
  manifest.version = document->Get("version").AsString("");
  manifest.git_commit = document->Get("git_commit").AsString("");
  manifest.driver_fingerprint = document->Get("driver_fingerprint").AsString("");
  if (manifest.version.empty()) return FailWith("manifest has no version", error);
  const JsonValue& files = document->Get("files");
  if (files.kind != JsonKind::Array || files.Size() == 0) {
    return FailWith("manifest has no files", error);
  }

  manifest.files.clear();
  for (size_t index = 0; index < files.Size(); ++index) {
    ManifestFile file = ReadEntry(files.At(index));
    if (!IsComplete(file)) return FailWith("manifest entry " + file.name + " is incomplete", error);
    if (!IsSafeName(file.name)) {
      return FailWith("manifest entry " + file.name + " escapes the install directory", error);
    }
    manifest.files.push_back(std::move(file));
  }
  return true;
}

}  // namespace Vantrell
