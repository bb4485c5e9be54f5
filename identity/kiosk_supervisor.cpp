#include "identity/kiosk_supervisor.h"

#include <signal.h>

#include <algorithm>
#include <cstdlib>

#include "base/directories.h"
#include "base/log_line.h"
#include "identity/client_process.h"

namespace Vantrell {
namespace {

constexpr int Attempts = 2;
constexpr Milliseconds AttemptMs = 15000;

// Each process is checked again directly before its signal: the kernel may have given the pid to
// another process since the scan.
void EndClientsOfOldImage(const std::vector<int32_t>& pids) {
  for (const int32_t pid : pids) {
    bool deleted = false;
    if (IsClientProcess(pid, &deleted) && deleted) kill(pid, SIGTERM);
  }
}

// The pid of the first client of the new image that is not in `before`; 0 if there is none.
int32_t FindNewClient(uint32_t uid, const std::vector<int32_t>& before) {
  for (const int32_t pid : FindClientPids(static_cast<int32_t>(uid))) {
    if (std::find(before.begin(), before.end(), pid) != before.end()) continue;
    bool deleted = false;
    if (IsClientProcess(pid, &deleted) && !deleted) return pid;
  }
  return 0;
}

int32_t WaitForNewClient(uint32_t uid, const std::vector<int32_t>& before) {
  const int64_t deadline = SteadyNowMs() + AttemptMs;
  while (SteadyNowMs() < deadline) {
    const int32_t pid = FindNewClient(uid, before);
    if (pid != 0) return pid;
    SleepMs(PollIntervalMs);
  }
  return 0;
}

}  // namespace

std::vector<int32_t> FindClientPids(int32_t uid) {
  std::vector<int32_t> pids;
  const Directory processes = OpenDirectory("/proc");
  if (!processes) return pids;
  while (const char* name = NextEntry(processes)) {
    const int32_t pid = static_cast<int32_t>(strtol(name, nullptr, 10));
    if (pid <= 0 || !IsClientProcess(pid)) continue;
    if (uid != -1 && ProcessUid(pid) != uid) continue;
    pids.push_back(pid);
  }
  return pids;
}

RelaunchOutcome RestartKioskClient(const ClientLaunchContext& context) {
  RelaunchOutcome outcome;
  for (int attempt = 1; attempt <= Attempts; ++attempt) {
    // Clients that run before the attempt are not its result.
    const std::vector<int32_t> before = FindClientPids(static_cast<int32_t>(context.uid));
    EndClientsOfOldImage(before);
    LogLine(
        "[UpdateSvc] asked the kiosk supervisor (%s) to restart its client from the new image "
        "(attempt %d)",
        context.unit.c_str(), attempt);
    outcome.pid = WaitForNewClient(context.uid, before);
    if (outcome.pid != 0) {
      LogLine("[UpdateSvc] the kiosk supervisor started pid %d", outcome.pid);
      return outcome;
    }
    LogLine("[UpdateSvc] the kiosk supervisor started no new client within %ums", AttemptMs);
  }
  LogLine(
      "[UpdateSvc] applied without judging: the kiosk client picks up the new image when it next "
      "starts");
  outcome.nothingToJudge = true;
  return outcome;
}

}  // namespace Vantrell
