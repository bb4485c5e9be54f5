#include "ctl/check_command.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <set>

#include "base/directories.h"
#include "base/file_content.h"
#include "base/steady_time.h"
#include "ctl/control_client.h"
#include "ctl/exit_status.h"
#include "ctl/messages.h"
#include "ctl/status_reply.h"
#include "ctl/unit_states.h"
#include "service/check_requests.h"

namespace Vantrell::Control {
namespace {

constexpr int64_t WaitLimitMs = 600000;
constexpr Milliseconds PollMs = 500;
constexpr int ListReadings = 3;
constexpr Milliseconds ListPauseMs = 20;

using Threads = std::set<std::string>;

std::string TaskFolder(const std::string& pid) { return "/proc/" + pid + "/task"; }

bool RunsCheck(const std::string& pid, const std::string& thread) {
  return ReadWholeFile(TaskFolder(pid) + "/" + thread + "/comm") ==
         std::string(ClientUpdateService::CheckThreadName) + "\n";
}

// The threads of the service that run a check which a request has begun. Nothing when it has ended
// or cannot be seen. The kernel ends the list early when a thread exits meanwhile, such as that of
// a connection. So it is read several times.
std::optional<Threads> CheckThreads(const std::string& pid) {
  Threads threads;
  for (int reading = 0; reading < ListReadings; ++reading) {
    if (reading > 0) SleepMs(ListPauseMs);
    const Directory folder = OpenDirectory(TaskFolder(pid));
    if (!folder) return std::nullopt;
    while (const char* name = NextEntry(folder)) {
      if (RunsCheck(pid, name)) threads.insert(name);
    }
  }
  return threads;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void ShowProgress(int64_t startMs, bool ends) {
  if (isatty(STDERR_FILENO) == 0) return;
  const auto seconds = static_cast<long>((SteadyNowMs() - startMs) / 1000);
  fprintf(stderr, ends ? "\r\033[K" : "\rchecking, %ld s ", seconds);
}

// STATUS does not tell that a check has ended: its text may be the same as before. So this waits
// for the end of the thread that the service started with the request.
int WaitForThreads(const std::string& pid, const Threads& ours) {
  const int64_t startMs = SteadyNowMs();
  for (;;) {
    const bool waits = std::any_of(ours.begin(), ours.end(), [&](const std::string& thread) {
      return Exists(TaskFolder(pid) + "/" + thread);
    });
    ShowProgress(startMs, !waits);
    if (!Exists(TaskFolder(pid))) {
      return Fail(ExitCannotTell, "the service ended during the check; ask again in a minute");
    }
    if (!waits) return ExitWell;
    if (SteadyNowMs() - startMs > WaitLimitMs) {
      ShowProgress(startMs, true);
      return Fail(ExitCannotTell,
                  "the check still runs after 10 minutes, perhaps a long download; "
                  "see \"status\" later");
    }
    SleepMs(PollMs);
  }
}

int PrintOutcome() {
  std::string reply;
  std::string error;
  if (!AskService("STATUS", reply, error)) return Fail(ExitCannotTell, error);
  puts(reply.c_str());
  return ParseStatusReply(reply).IsGood() ? ExitWell : ExitNeedsAttention;
}

int CheckAndWait() {
  std::string reply;
  std::string error;
  // A connection starts a service that is stopped. It must run before its threads are listed.
  if (!AskService("STATUS", reply, error)) return Fail(ExitCannotTell, error);
  const std::string pid = UnitProperty(ServiceUnit, "MainPID");
  const std::optional<Threads> before = CheckThreads(pid);
  if (!AskService("CHECK", reply, error)) return Fail(ExitCannotTell, error);
  std::optional<Threads> ours = CheckThreads(pid);
  if (!before || !ours) {
    return Fail(ExitCannotTell,
                "the check has begun, but this user cannot see when it ends; see "
                "\"status\" later");
  }
  for (const std::string& thread : *before) ours->erase(thread);
  const int waited = WaitForThreads(pid, *ours);
  return waited == ExitWell ? PrintOutcome() : waited;
}

}  // namespace

int RunCheck(const Arguments& arguments) {
  if (arguments == Arguments{"--wait"}) return CheckAndWait();
  if (!arguments.empty()) return FailUsage("check takes only --wait");
  std::string reply;
  std::string error;
  if (!AskService("CHECK", reply, error)) return Fail(ExitCannotTell, error);
  puts("The service checks; \"status\" shows the outcome.");
  return ExitWell;
}

}  // namespace Vantrell::Control
