#pragma once

// The steps after the swap of the package: ending the old clients, starting one new client for each
// user, watching the first one that started, and the rollback if it does not stay. All of it runs
// on the thread of the apply and takes no lock; a stop of the service does not interrupt it.

#include <string>
#include <vector>

#include "identity/kiosk_supervisor.h"
#include "identity/launch_context.h"

namespace Vantrell {

// Whether a kiosk supervisor restarts this client. Only the name of its unit decides: it ends in
// ".service" and does not begin with "user@". The unit of a relaunched client has such a name too:
// the package moves that client into a control group with another name.
[[nodiscard]] bool IsKioskClient(const ClientLaunchContext& context);

// Ends every client of `contexts` with SIGTERM, except the requester (null: there is none), which
// ends by itself. Waits up to 10 s for each client that is not a kiosk client. Starts one client
// for each user. `judged` becomes the first outcome that can be judged; the caller passes it with
// nothing to judge, and it stays so if none can be judged.
void ReplaceRunningClients(const std::vector<ClientLaunchContext>& contexts,
                           const ClientLaunchContext* requester, RelaunchOutcome& judged);

// Watches the new client for 20 s. True when it still runs at the end. False is logged here.
[[nodiscard]] bool JudgeNewClient(const RelaunchOutcome& judged);

// Installs the rollback copy, if there is one, and then starts a client from `firstContext`.
// `error` gets the final words of the apply. A failed install is logged here. `previousVersion` is
// used in a log line only.
void RollBackClient(bool hasRollbackCopy, const std::string& rollbackPath,
                    const std::string& previousVersion, const ClientLaunchContext& firstContext,
                    std::string& error);

}  // namespace Vantrell
