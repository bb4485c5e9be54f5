#pragma once

// The state that the threads of the service share. This header includes nothing else of the
// service, so that the check pass and the apply can include it.

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "base/mutex.h"
#include "update/update.h"

namespace Vantrell::ClientUpdateService {

// There is one object. It exists before main() and is never destroyed, because detached threads may
// still read it while the process exits. stateMutex and wakeMutex are never held together, and
// neither is held during network work, file work or a child process. The atomics are sequentially
// consistent.
struct ServiceState {
  // Becomes readable when the service stops and stays readable, because it is never read. Set once,
  // before any other thread or signal handler runs; -1 if the kernel gave none.
  int stopEventFd = -1;

  Mutex stateMutex;
  std::string lastStatus GUARDED_BY(stateMutex);  // outcome of the last check pass, one line
  UpdateManifest staged GUARDED_BY(stateMutex);   // valid only while stagedReady
  bool stagedReady GUARDED_BY(stateMutex) = false;

  std::mutex wakeMutex;          // only for the timed wait of the background thread
  std::condition_variable wake;  // only for stopping; CHECK does not notify it

  std::atomic<int> connections{0};              // live connection threads
  std::atomic<int> sessionHolds{0};             // live HOLD connections
  std::atomic<bool> stopRequested{false};       // false to true, never back
  std::atomic<bool> restartForNewBuild{false};  // false to true, never back
  std::atomic<bool> applyBusy{false};           // set by exchange by the one running apply
  std::thread backgroundThread;                 // only the main thread uses it
};
extern ServiceState& serviceState;

// Whether a release is staged and verified at this moment.
[[nodiscard]] bool IsReleaseStaged() EXCLUDES_LOCK(serviceState.stateMutex);

// Wakes every poll() on stopEventFd, present and later ones. A signal handler may call it.
void SignalStopEvent();

// Asks the main thread to stop the service with the status that makes the service manager start the
// new build. The thread of an accepted apply calls it.
void StopForNewBuild();

}  // namespace Vantrell::ClientUpdateService
