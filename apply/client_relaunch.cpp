#include "apply/client_relaunch.h"

#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iterator>
#include <string>
#include <vector>

#include "apply/process_runner.h"
#include "base/log_line.h"
#include "identity/client_process.h"

namespace Vantrell {
namespace {

constexpr int LookUpAttempts = 20;
constexpr Milliseconds LookUpPauseMs = 500;

bool MayPass(int error) {
  constexpr int Errors[] = {EMFILE, ENFILE, ENOMEM, EINTR, EAGAIN, EIO};
  return std::ranges::find(Errors, error) != std::end(Errors);
}

// Null when the user has no passwd entry. A lookup that fails because descriptors or memory are
// exhausted, or a directory service is away, is repeated for some seconds: without its client the
// release would not be judged.
const passwd* FindAccount(uid_t uid) {
  for (int attempt = 1;; ++attempt) {
    errno = 0;
    const passwd* account = getpwuid(uid);
    if (account != nullptr || !MayPass(errno) || attempt == LookUpAttempts) return account;
    SleepMs(LookUpPauseMs);
  }
}

std::vector<std::string> StartCommand(const std::string& user, const std::string& unit,
                                      const ClientLaunchContext& context) {
  std::vector<std::string> command = {
      "systemd-run",    "--user",    "--machine=" + user + "@.host",
      "--unit=" + unit, "--collect", "--quiet",
  };
  for (const std::string& entry : context.env) command.push_back("--setenv=" + entry);
  command.emplace_back("--");
  command.emplace_back(ClientBinaryPath);
  command.insert(command.end(), context.args.begin(), context.args.end());
  return command;
}

}  // namespace

RelaunchOutcome RelaunchClient(const ClientLaunchContext& context) {
  RelaunchOutcome outcome;
  outcome.nothingToJudge = true;
  const passwd* account = FindAccount(context.uid);
  if (account == nullptr) return outcome;
  outcome.user = account->pw_name;

  const std::string unit = "vantrell-harbor-relaunch-" + std::to_string(time(nullptr));
  std::string output;
  if (RunProcess(StartCommand(outcome.user, unit, context), {}, output) != 0) {
    LogLine("[UpdateSvc] could not start the client in %s's session: %s", outcome.user.c_str(),
            LastLine(output).c_str());
    return outcome;
  }
  outcome.unit = unit;
  outcome.nothingToJudge = false;
  return outcome;
}

}  // namespace Vantrell
