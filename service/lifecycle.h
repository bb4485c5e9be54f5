#pragma once

// The process from its start to its exit status.

namespace Vantrell::ClientUpdateService {

// Exit statuses.
constexpr int Stopped = 0;
constexpr int CouldNotStart = 1;
constexpr int StoppedForNewBuild = 75;  // the service manager must start the new build

// Serves until SIGTERM, SIGINT or an accepted apply, and returns the exit status. main() calls it
// once, on the main thread. It notifies the service manager when it is ready and, as its last
// action, that it stops. The stop waits without a limit for a check pass of the background thread
// and for a running apply; all other threads end with the process. A failure to start is logged.
int RunService();

}  // namespace Vantrell::ClientUpdateService
