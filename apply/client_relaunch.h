#pragma once

// Starting a client again in a user's session, through the service manager of this user.

#include "identity/kiosk_supervisor.h"
#include "identity/launch_context.h"

namespace Vantrell {

// Starts the installed client as a transient unit of the context's user, with the arguments and the
// environment of the context. Does not wait for the client to end. If the user has no passwd entry,
// or the start fails (which is logged here), the outcome has nothing to judge. It uses getpwuid(),
// so only the thread of the apply may call it.
RelaunchOutcome RelaunchClient(const ClientLaunchContext& context);

}  // namespace Vantrell
