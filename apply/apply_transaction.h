#pragma once

// The apply: installs the staged release and accepts it, or installs the previous package again if
// there is a rollback copy. No other code changes the client package. Blocks its thread for
// minutes.

#include <string>

#include "identity/launch_context.h"

namespace Vantrell {

// True: the staged release is now installed and accepted, and the caller must stop the service for
// the new build. False: `error`, which the caller passes empty, has the reason, and the caller must
// log it. The release then stays staged.
//
// `ignoreWindow` skips the test of the maintenance window and nothing else. `requester` (null:
// none) is the client that asked, as it was before it ended. It is not told to end, except as a
// kiosk client of the old image.
//
// Only one apply runs at a time; a second one is refused. After its tests an apply runs to its end
// on its own copy of the manifest. A stop, a session or the end of the window does not interrupt
// it.
[[nodiscard]] bool ApplyStagedUpdate(bool ignoreWindow, const ClientLaunchContext* requester,
                                     std::string& error);

// The attempt of the background thread after each check pass. True: a release was accepted, the
// stop has begun, and the thread must end. A refusal is logged here.
[[nodiscard]] bool TryAutomaticApply();

}  // namespace Vantrell
