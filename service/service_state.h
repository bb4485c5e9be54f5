#pragma once

// What the threads of the service share. It stands alone, so that the check pass and the
// apply can use it without knowing the service.

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "base/mutex.h"
#include "update/update.h"

namespace Vantrell::ClientUpdateService {

// One object, there before main, never destroyed: detached connection threads may still read
// it while the process exits. stateMutex and wakeMutex are never held together, and neither
// across network work, file work or a child process. The atomics are sequentially consistent.
struct ServiceState {
  // Becomes readable when the service stops and stays so: nobody ever reads it. Set once,
  // before any other thread or signal handler runs; -1 where the kernel gave none.
  int stopEventFd = -1;

  Mutex stateMutex;
  std::string lastStatus GUARDED_BY(stateMutex);  // outcome of the last check pass, one line
  UpdateManifest staged GUARDED_BY(stateMutex);   // means something only while stagedReady
  bool stagedReady GUARDED_BY(stateMutex) = false;

  std::mutex wakeMutex;          // for the timed wait of the background thread alone
  std::condition_variable wake;  // for stopping alone; CHECK does not touch it

  std::atomic<int> connections{0};              // live connection threads
  std::atomic<int> sessionHolds{0};             // live HOLD connections
  std::atomic<bool> stopRequested{false};       // false to true, never back
  std::atomic<bool> restartForNewBuild{false};  // false to true, never back
  std::atomic<bool> applyBusy{false};           // claimed by exchange by the one running apply
  std::thread backgroundThread;                 // the main thread's
};
extern ServiceState& serviceState;

// Whether a release is staged and verified at this moment.
bool IsReleaseStaged() EXCLUDES_LOCK(serviceState.stateMutex);

// Makes every poll on stopEventFd wake, now and later. Safe in a signal handler.
void SignalStopEvent();

// Ends the service, with the status that makes the service manager start the new build. Called
// by the thread of an accepted apply. The stop itself is the main thread's.
void StopForNewBuild();

}  // namespace Vantrell::ClientUpdateService
