#pragma once

// The records of a release, and the check pass. RunCheckPass() is in update/check_cycle.cpp.

#include <cstdint>
#include <string>
#include <vector>

namespace Vantrell {

// One file of a release, as the update server offers it.
struct ManifestFile {
  std::string name;    // below the staging directory; may contain "/"; checked to be safe
  std::string sha256;  // exactly 64 characters; compared as text with lower-case hexadecimal digits
  int64_t size = 0;    // bytes, as declared; signed, but not compared with the size of the file
  std::string url;     // where to fetch it; https
};

// An offered release. A copy is independent of the pass that made it.
struct UpdateManifest {
  std::string version;             // not empty once parsed; the name of the staging directory too
  std::string git_commit;          // may be empty; no decision depends on it
  std::string driver_fingerprint;  // may be empty; no decision depends on it
  std::vector<ManifestFile> files;
};

// One check pass: asks the update server, stages the offered release if it is new and proved, and
// publishes the outcome as the status and the staged release of the service. Each change of the
// status is logged. True when the server answered, with any HTTP status; false when the transfer
// failed. Any thread may call it, and passes may overlap. Blocks for the request and for all
// downloads.
bool RunCheckPass();

}  // namespace Vantrell
