#pragma once

// Starts a client again in a user's session, by that user's own service manager.

#include "identity/kiosk_supervisor.h"
#include "identity/launch_context.h"

namespace Vantrell {

// Starts the installed client as a transient unit of the context's user, with the arguments
// and the environment of the context. A user without a passwd entry, and a start that failed
// (logged here), give an outcome with nothing to judge. Does not wait for the client to end.
// One apply at a time calls it: it uses getpwuid.
RelaunchOutcome RelaunchClient(const ClientLaunchContext& context);

}  // namespace Vantrell
