#pragma once

// The chief records of an update, and the pass that looks for one.

#include <cstdint>
#include <string>
#include <vector>

namespace Vantrell {

// One file of a release, as the update server offers it.
struct ManifestFile {
  std::string name;    // relative to the staging directory; may hold "/"; judged safe as a path
  std::string sha256;  // exactly 64 characters; compared as text with lower-case hexadecimal
  int64_t size = 0;    // bytes, as declared; covered by the signature, never compared with a file
  std::string url;     // where to fetch it; https
};

// An offered release. Plain values: a copy is independent of the pass that made it.
struct UpdateManifest {
  std::string version;     // never empty once parsed; also the name of the staging directory
  std::string git_commit;  // may be empty; nothing is decided by it
  std::string driver_fingerprint;  // may be empty; nothing is decided by it
  std::vector<ManifestFile> files;
};

// Asks the update server once, stages what it offers if that is new and proved, and publishes
// the outcome as status and staged release of the service. Whatever changes the status is in
// the log when this returns.
// True when the server answered, with any HTTP status; false when the transfer failed.
// Any thread; passes may overlap. Blocks for the request and for all downloads.
bool RunCheckPass();

}  // namespace Vantrell
