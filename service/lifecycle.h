#pragma once

// The process from its start to its exit status. Called by main, once, on the main thread.

namespace Vantrell::ClientUpdateService {

// Exit statuses.
constexpr int Stopped = 0;
constexpr int CouldNotStart = 1;
constexpr int StoppedForNewBuild = 75;  // the service manager is to start the new build

// Serves until SIGTERM, SIGINT or an accepted apply, and returns the exit status. Announces
// readiness and, as its very last act, the stop to the service manager. A running check
// pass of the background thread and a running apply are waited for, without a limit; all other
// threads end with the process. Every failure to start is logged here.
int RunService();

}  // namespace Vantrell::ClientUpdateService
