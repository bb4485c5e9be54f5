#include "update/staging.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "base/descriptor.h"
#include "base/directories.h"
#include "base/failure.h"
#include "base/stream.h"
#include "trust/digest.h"
#include "trust/witness_quorum.h"
#include "update/https_transport.h"

namespace Vantrell {
namespace {

constexpr long FileLimitMs = 1800000;  // for the whole transfer of one file

Stream OpenForDownload(const std::string& path) {
  Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file) return nullptr;
  Stream stream(fdopen(file.Number(), "wb"));
  if (stream) (void)file.Release();  // the stream owns it now
  return stream;
}

bool StageFile(const ManifestFile& file, const std::string& stagingDir, std::string& error) {
  const std::string path = stagingDir + "/" + file.name;
  if (!MakeParentDirs(path, 0755)) {
    return FailWith("cannot create staging subdir for " + file.name, error);
  }
  std::string downloadError;
  if (!DownloadToFile(file.url, path, downloadError)) {
    return FailWith(file.name + ": " + downloadError, error);
  }
  // Reads the file back from disk: what was received may differ from what was stored.
  std::string hash;
  if (!Sha256File(path, hash)) return FailWith(file.name + ": cannot hash staged file", error);
  if (hash != file.sha256) return FailWith(file.name + ": sha256 mismatch", error);
  return true;
}

}  // namespace

bool DownloadToFile(const std::string& url, const std::string& path, std::string& error) {
  Stream stream = OpenForDownload(path);
  if (!stream) return FailWith("cannot create staging file", error);
  const bool fetched = HttpsGet(url, WriteToFile, stream.get(), FileLimitMs, error);
  const bool onDisk = fflush(stream.get()) == 0 && fsync(fileno(stream.get())) == 0;
  if (fetched && !onDisk) error = "write failed";
  stream.reset();
  if (fetched && onDisk) return true;
  unlink(path.c_str());
  return false;
}

bool StageRelease(const UpdateManifest& manifest, const std::string& component,
                  const std::string& channel, const std::string& stagingDir, std::string& error) {
  // This must come before the first write and before the first byte of a package.
  if (!VerifyRelease(manifest, component, channel, error)) return false;
  if (!MakeDirs(stagingDir, 0755)) return FailWith("cannot create staging dir", error);
  for (const ManifestFile& file : manifest.files) {
    if (!StageFile(file, stagingDir, error)) return false;
  }
  return true;
}

}  // namespace Vantrell
