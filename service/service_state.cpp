#include "service/service_state.h"

#include <unistd.h>

#include <cstdint>

namespace Vantrell::ClientUpdateService {
namespace {

// Its constructor runs before main(), and its record is never destroyed.
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
  // If the counter is full the write fails, but then the eventfd is readable.
  (void)!write(serviceState.stopEventFd, &one, sizeof one);
}

void StopForNewBuild() {
  // Before stopRequested: the main thread must find this true when it sees the stop.
  serviceState.restartForNewBuild.exchange(true);
  serviceState.stopRequested.exchange(true);
  SignalStopEvent();
  // Without wakeMutex, so that a stop never waits for a lock. If this falls between the background
  // thread's test and its wait, the thread sees the stop only at its deadline; this is accepted.
  serviceState.wake.notify_all();
}

}  // namespace Vantrell::ClientUpdateService
