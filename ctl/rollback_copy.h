#pragma once

// The package that a rollback would install. It logs nothing.

#include <string>

namespace Vantrell::Control {

// "proved" by the record of the installed release, "missing", "damaged" when the record does not
// name it, or "unknown" to all users but root.
std::string RollbackCopyState();

// Moves the package file `source`, which must be on the file system of the state directory, to the
// place of the rollback copy, and names it in the record as `name`. The service must not run. After
// a kill or a power cut in between, the next start of the service ends the work or undoes it. False
// with a reason in `error` when a step fails.
[[nodiscard]] bool PlaceRollbackCopy(const std::string& source, const std::string& name,
                                     std::string& error);

}  // namespace Vantrell::Control
