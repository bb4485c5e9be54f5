#pragma once

// The state directory, the paths below it, and what is in it:
//
//   install-id                    identity of this installation, one line
//   machine-id                    the machine of the install id; the start of the unit writes it
//   installed.sha256              the last accepted release, one line a file: name, blank, hash
//   client-staging/VERSION/NAME   files of staged releases; each start of the unit removes them
//   rollback-candidate.deb        of a running "updatectl seed", or of one that was killed
//   client-rollback/previous.deb  package of the last accepted release (directory: mode 0700)
//
// Which staged release may be installed is kept in memory only, so a staged directory that a crash
// leaves is never installed. The one file that the service writes elsewhere is the settings file.
// Any thread may call these functions; they log nothing.

#include <string>

namespace Vantrell {

constexpr char StateDir[] = "/var/lib/vantrell-harbor/update";

std::string InstallIdPath();

std::string InstalledRecordPath();

// The root of all staged releases. Makes it and sets its mode to 0755. A failure is not reported;
// it shows when a file cannot be created there.
std::string ClientStagingDir();

// The directory of one staged release. `version` is used as it is. Makes the root, as above, but
// not this directory.
std::string StagedReleaseDir(const std::string& version);

// The directory of the rollback copy. Does not make it.
std::string ClientRollbackDir();

// The rollback copy: the package that this service accepted last.
std::string RollbackCopyPath();

}  // namespace Vantrell
