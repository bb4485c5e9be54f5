#pragma once

// The process from its start to its exit status. Called by main, once, on the main thread.

namespace Vantrell::ClientUpdateService {

// Exit statuses.
constexpr int Stopped = 0;
constexpr int CouldNotStart = 1;
constexpr int StoppedForNewBuild = 75;  // the service manager is to start the new build

constexpr char SocketPath[] = "/run/vantrell/update.sock";

// Serves until SIGTERM, SIGINT or an accepted apply, and returns the exit status. Takes the
// listening socket of the service manager (descriptor 3) if it passed exactly one, else makes
// its own at SocketPath, open to every local user, and removes it at the end. A running check
// pass of the background thread and a running apply are waited for, without a limit; all other
// threads end with the process. Every failure to start is logged here.
int RunService();

}  // namespace Vantrell::ClientUpdateService
