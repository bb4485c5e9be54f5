#pragma once

// The package that a rollback would install. It logs nothing.

#include <string>

namespace Vantrell::Control {

// "proved" by the record of the installed release, "missing", "damaged" when the record does not
// name it, or "unknown" to all users but root.
std::string RollbackCopyState();

}  // namespace Vantrell::Control
