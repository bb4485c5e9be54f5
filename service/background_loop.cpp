#include "service/background_loop.h"

#include <algorithm>
#include <chrono>
#include <mutex>

#include "apply/apply_transaction.h"
#include "service/service_state.h"
#include "update/host_inventory.h"
#include "update/update.h"

namespace Vantrell::ClientUpdateService {
namespace {

// False when the service stops. The deadline is on the steady clock, and neither a change of the
// wall clock nor a wake-up without a stop changes it.
bool WaitForNextCheck(Milliseconds wait) {
  std::unique_lock<std::mutex> lock(serviceState.wakeMutex);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(wait);
  do {
    if (serviceState.stopRequested) return false;
    serviceState.wake.wait_until(lock, deadline);
  } while (std::chrono::steady_clock::now() < deadline);
  return !serviceState.stopRequested;
}

}  // namespace

uint32_t StableJitter(std::string_view text, uint32_t span) {
  if (span == 0) return 0;
  uint32_t hash = 0x811c9dc5;
  for (const char byte : text) {
    hash ^= static_cast<unsigned char>(byte);
    hash *= 16777619;
  }
  return hash % span;
}

void RunUpdateLoop(const LoopSteps& steps) {
  Milliseconds waitMs = FirstCheckDelayMs;
  Milliseconds nextMs = FirstCheckDelayMs;  // the wait after a failure
  while (steps.wait(waitMs)) {
    const bool reached = steps.pass();
    // After a failed pass too: a release may have been staged earlier, or by a CHECK.
    if (steps.apply()) return;
    if (reached) {
      waitMs = BaseCheckPeriodMs + StableJitter(steps.installId(), CheckJitterSpanMs);
      nextMs = FirstCheckDelayMs;
    } else {
      waitMs = nextMs;
      nextMs = std::min(2 * waitMs, BackOffCapMs);
    }
  }
}

void BackgroundUpdateLoop() {
  RunUpdateLoop({WaitForNextCheck, RunCheckPass, TryAutomaticApply, InstallId});
}

}  // namespace Vantrell::ClientUpdateService
