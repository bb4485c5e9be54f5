#include "service/service_state.h"

#include <unistd.h>

#include <cstdint>

namespace Vantrell::ClientUpdateService {
namespace {

// Runs the constructor before main and leaves the destructor out.
template <typename Record>
union NeverDestroyed {
  Record record;
  NeverDestroyed() : record() {}
  ~NeverDestroyed() {}
};
NeverDestroyed<ServiceState> stateStorage;

}  // namespace

ServiceState& serviceState = stateStorage.record;

bool IsReleaseStaged() {
  const MutexLock lock(serviceState.stateMutex);
  return serviceState.stagedReady;
}

void SignalStopEvent() {
  if (serviceState.stopEventFd < 0) return;
  const uint64_t one = 1;
  // The counter only grows; a full one is readable already.
  (void)!write(serviceState.stopEventFd, &one, sizeof one);
}

void StopForNewBuild() {
  // Before stopRequested: the main thread must find this true once it sees the stop.
  serviceState.restartForNewBuild.exchange(true);
  serviceState.stopRequested.exchange(true);
  SignalStopEvent();
  // Without wakeMutex: a wake-up that falls just before the wait is missed, and the thread
  // then sees the stop at its deadline. That is accepted: no stopper ever waits for a lock.
  serviceState.wake.notify_all();
}

}  // namespace Vantrell::ClientUpdateService
