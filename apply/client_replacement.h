#pragma once

// Between the swap of the package and the verdict on it: the old clients are ended, one new
// client for each user is started, the first that really started is watched, and if it does
// not stay the previous package is put back. All of it runs on the thread of the apply, takes
// no lock and does not look at a stop of the service.

#include <string>
#include <vector>

#include "identity/kiosk_supervisor.h"
#include "identity/launch_context.h"

namespace Vantrell {

// Whether a system unit keeps this client alive, by the name of its unit alone: one of a
// relaunched client counts too, the user's own manager does not.
bool IsKioskClient(const ClientLaunchContext& context);

// Ends every client of `contexts` by SIGTERM, but never the requester (null: there is none),
// which ends by itself; gives each that no supervisor keeps up to 10 s, and starts one client for
// each user. `judged` comes in with nothing to judge and becomes the first outcome that has
// something.
void ReplaceRunningClients(const std::vector<ClientLaunchContext>& contexts,
                           const ClientLaunchContext* requester, RelaunchOutcome& judged);

// Watches the new client for 20 s. True when it is still there at the end; otherwise the log
// has it.
[[nodiscard]] bool JudgeNewClient(const RelaunchOutcome& judged);

// Installs the rollback copy, if there is one, and then starts a client of `firstContext`
// again. `error` becomes the
// final words of the apply; what failed on the way is in the log. `previousVersion` is for the
// log alone.
void RollBackClient(bool hasRollbackCopy, const std::string& rollbackPath,
                    const std::string& previousVersion, const ClientLaunchContext& firstContext,
                    std::string& error);

}  // namespace Vantrell
