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

// False when the service stops. On the steady clock: a change of the wall clock changes
// nothing, and neither does a wake-up that is no stop.
bool WaitForNextCheck(uint32_t waitMs) {
  std::unique_lock<std::mutex> lock(serviceState.wakeMutex);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
  do {
    if (serviceState.stopRequested) return false;
    (void)serviceState.wake.wait_until(lock, deadline);
  } while (std::chrono::steady_clock::now() < deadline);
  return !serviceState.stopRequested;
}

}  // namespace

uint32_t StableJitter(std::string_view text, uint32_t spanMs) {
  if (spanMs == 0) return 0;
  uint32_t hash = 0x811c9dc5;
  for (const char byte : text) {
    hash ^= static_cast<unsigned char>(byte);
    hash *= 16777619;
  }
  return hash % spanMs;
}

CheckRhythm RhythmAfterAnswer(std::string_view installId) {
  return {BaseCheckPeriodMs + StableJitter(installId, CheckJitterSpanMs), FirstCheckDelayMs};
}

CheckRhythm RhythmAfterFailure(const CheckRhythm& rhythm) {
  return {rhythm.nextMs, std::min(2 * rhythm.nextMs, BackOffCapMs)};
}

void BackgroundUpdateLoop() {
  CheckRhythm rhythm;
  while (WaitForNextCheck(rhythm.waitMs)) {
    const bool reached = RunCheckPass();
    // Also after a failed pass: something may be staged since long ago, or by a CHECK.
    if (TryAutomaticApply()) return;
    rhythm = reached ? RhythmAfterAnswer(InstallId()) : RhythmAfterFailure(rhythm);
  }
}

}  // namespace Vantrell::ClientUpdateService
