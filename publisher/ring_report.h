#pragma once

// One ring as a machine sees it: the offer, the nine files of the witnesses, the verdict of the
// service's own code, and on demand the files. Nothing of this machine's settings and state is
// used: update server, witnesses and keys are those of the build.

#include <string>
#include <vector>

#include "publisher/witness_files.h"
#include "update/update.h"

namespace Vantrell::Publisher {

// The statuses of a monitoring plugin.
constexpr int StatusOk = 0;
constexpr int StatusWarning = 1;   // nothing is offered to a machine without a client
constexpr int StatusCritical = 2;  // a machine cannot get the offer, or refuses it
constexpr int StatusUnknown = 3;   // a fault of the call or of this machine

struct RingQuestion {
  std::string ring;              // "dev", "beta" or "prod"
  std::string offer;             // the text of an offer; empty: ask the update server
  std::string installedVersion;  // of the machine that asks; empty: no client is installed
  std::string folder;            // gets the files, below the name of the ring; empty: no files
};

struct RingReport {
  std::string ring;
  int status = StatusCritical;
  std::string outcome;             // in words that can follow "prod: "
  UpdateManifest manifest;         // empty unless the offer can be read
  std::vector<Witness> witnesses;  // empty unless the offer can be read
  std::string refusal;             // what a machine says; empty: it accepts the release
};

// Blocks for at most 80 s, and with a folder for nine minutes more, for the second proof, and half
// an hour for each file. The caller removes what is in the folder. Several threads may call it. The
// service's code logs meanwhile.
RingReport ExamineRing(const RingQuestion& question);

}  // namespace Vantrell::Publisher
