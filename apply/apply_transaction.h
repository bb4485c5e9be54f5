#pragma once

// The one operation that changes the client package on the machine: takes the staged release
// to installed and accepted, or back to where it stood. Blocks its thread for minutes.

#include <string>

#include "identity/launch_context.h"

namespace Vantrell {

// True: the staged release is now the accepted installed one, and the caller is to stop the
// service for the new build. False: `error`, which comes in empty, has the reason; it is the
// caller's to log. What is staged then stays staged.
//
// `ignoreWindow` skips the gate of the maintenance window and nothing else. `requester` (null:
// none) is the client that asked, taken before it went away; it is never signalled.
//
// One apply runs at a time, a second is refused. Once past its gates it runs to its end,
// whatever stop, session or window comes meanwhile, on its own copy of the manifest.
[[nodiscard]] bool ApplyStagedUpdate(bool ignoreWindow, const ClientLaunchContext* requester,
                                     std::string& error);

// The attempt of the background thread after each check pass. True: a release was accepted,
// the stop is under way, and the thread is to end. A refusal is in the log.
[[nodiscard]] bool TryAutomaticApply();

}  // namespace Vantrell
