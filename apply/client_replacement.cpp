#include "apply/client_replacement.h"

#include <signal.h>

#include <algorithm>
#include <cstdint>

#include "apply/client_relaunch.h"
#include "apply/package_swap.h"
#include "apply/process_runner.h"
#include "base/log_line.h"
#include "base/steady_time.h"

namespace Vantrell {
namespace {

constexpr uint32_t TerminationLimitMs = 10000;
constexpr uint32_t JudgementMs = 20000;  // also the number in the log, whenever the client ended

void EndOldClient(const ClientLaunchContext& context) {
  if (kill(context.pid, SIGTERM) != 0) return;
  // A supervisor has its own idea of when its client ends and starts again.
  if (IsKioskClient(context)) return;
  WaitForProcessExit(static_cast<uint32_t>(context.pid), TerminationLimitMs);
}

RelaunchOutcome StartNewClient(const ClientLaunchContext& context) {
  return IsKioskClient(context) ? RestartKioskClient(context) : RelaunchClient(context);
}

// One look each, which logs a client that is gone. A process that nobody has reaped yet still
// counts as alive.
bool StayedByPid(int32_t pid) {
  if (kill(pid, 0) == 0) return true;
  LogLine("[UpdateSvc] the new client exited within %ums", JudgementMs);
  return false;
}

// A query that fails counts like a client that is gone.
bool StayedByUnit(const std::string& user, const std::string& unit) {
  std::string output;
  (void)RunProcess({"systemctl", "--user", "--machine=" + user + "@.host", "show", "-p",
                    "ActiveState", "--value", unit},
                   {}, output);
  const std::string state = LastLine(output);
  if (state == "active" || state == "activating") return true;
  LogLine("[UpdateSvc] the new client exited within %ums (%s)", JudgementMs, state.c_str());
  return false;
}

}  // namespace

bool IsKioskClient(const ClientLaunchContext& context) {
  return context.unit.ends_with(".service") && !context.unit.starts_with("user@");
}

void ReplaceRunningClients(const std::vector<ClientLaunchContext>& contexts,
                           const ClientLaunchContext* requester, RelaunchOutcome& judged) {
  std::vector<std::string> relaunchedUids;
  for (const ClientLaunchContext& context : contexts) {
    if (requester == nullptr || requester->pid != context.pid) EndOldClient(context);

    const std::string uid = std::to_string(context.uid);
    if (std::find(relaunchedUids.begin(), relaunchedUids.end(), uid) != relaunchedUids.end()) {
      continue;
    }
    relaunchedUids.push_back(uid);
    const RelaunchOutcome outcome = StartNewClient(context);
    if (judged.nothingToJudge && !outcome.nothingToJudge) judged = outcome;
  }
}

bool JudgeNewClient(const RelaunchOutcome& judged) {
  const int64_t deadline = SteadyNowMs() + JudgementMs;
  while (SteadyNowMs() < deadline) {
    const bool alive =
        judged.pid != 0 ? StayedByPid(judged.pid) : StayedByUnit(judged.user, judged.unit);
    if (!alive) return false;
    SleepMs(PollIntervalMs);
  }
  return true;
}

void RollBackClient(bool hasRollbackCopy, const std::string& rollbackPath,
                    const std::string& previousVersion, const ClientLaunchContext& firstContext,
                    std::string& error) {
  if (!hasRollbackCopy) {
    error = "the updated client did not stay running and there was no rollback copy";
    return;
  }
  LogLine("[UpdateSvc] rolling back to the previous set (%s)", previousVersion.c_str());
  std::string swapError;
  if (SwapClientPackage(rollbackPath, swapError)) {
    (void)StartNewClient(firstContext);  // not judged again
  } else {
    LogLine("[UpdateSvc] rollback failed: %s", swapError.c_str());
  }
  // The same sentence after a failed install, and meant so: the log line above tells which.
  error = "the updated client did not stay running; the previous version was restored";
}

}  // namespace Vantrell
