#pragma once

// The service's own directory. All that it keeps on disk lies here, and nothing else does:
//
//   install-id                    identity of this installation, one line
//   installed.sha256              the last accepted release, one line a file: name, blank, hash
//   client-staging/VERSION/NAME   files of a staged release; older versions stay behind
//   client-rollback/previous.deb  package of the last accepted release (folder: mode 0700)
//
// Which staged release is usable is not among it: that is known in memory alone, so that
// nothing left by a crash is ever trusted.

namespace Vantrell {

constexpr char StateDir[] = "/var/lib/vantrell-harbor/update";

}  // namespace Vantrell
