#include "apply/client_replacement.h"

#include <signal.h>

#include <algorithm>
#include <cstdint>

#include "apply/client_relaunch.h"
#include "apply/package_swap.h"
#include "apply/process_runner.h"
#include "base/log_line.h"

namespace Vantrell {
namespace {

constexpr Milliseconds TerminationLimitMs = 10000;
// The log lines name this number, whenever the client has ended.
constexpr Milliseconds JudgementMs = 20000;

void EndOldClient(const ClientLaunchContext& context) {
  if (kill(context.pid, SIGTERM) != 0) return;
  // RestartKioskClient() waits for the client that the supervisor starts.
  if (IsKioskClient(context)) return;
  WaitForProcessExit(static_cast<uint32_t>(context.pid), TerminationLimitMs);
}

RelaunchOutcome StartNewClient(const ClientLaunchContext& context) {
  return IsKioskClient(context) ? RestartKioskClient(context) : RelaunchClient(context);
}

// Checks once, and logs a client that has ended. A process that its parent has not reaped yet still
// exists here.
bool IsStillRunning(int32_t pid) {
  if (kill(pid, 0) == 0) return true;
  LogLine("[UpdateSvc] the new client exited within %ums", JudgementMs);
  return false;
}

// Checks once, and logs a client that has ended. A query that fails gives no state, which is
// treated as a client that has ended.
bool IsStillRunning(const std::string& user, const std::string& unit) {
  std::string output;
  RunProcess({"systemctl", "--user", "--machine=" + user + "@.host", "show", "-p", "ActiveState",
              "--value", unit},
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
        judged.pid != 0 ? IsStillRunning(judged.pid) : IsStillRunning(judged.user, judged.unit);
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
    StartNewClient(firstContext);  // this client is not judged
  } else {
    LogLine("[UpdateSvc] rollback failed: %s", swapError.c_str());
  }
  // The sentence is the same after a failed install. Only the log line above tells the difference.
  error = "the updated client did not stay running; the previous version was restored";
}

}  // namespace Vantrell
