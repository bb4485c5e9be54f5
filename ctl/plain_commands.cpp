#include "ctl/plain_commands.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "apply/process_runner.h"
#include "base/deployment.h"
#include "base/file_content.h"
#include "base/lines.h"
#include "base/steady_time.h"
#include "ctl/control_client.h"
#include "ctl/exit_status.h"
#include "ctl/machine_status.h"
#include "ctl/messages.h"
#include "ctl/printable_text.h"
#include "ctl/status_report.h"
#include "ctl/window_opening.h"
#include "settings/settings_file.h"
#include "update/state_directory.h"

namespace Vantrell::Control {
namespace {

constexpr Milliseconds WatchPauseMs = 5000;

void Print(const std::string& text) {
  fputs(text.c_str(), stdout);
  fflush(stdout);
}

int SetRing(const std::string& ring) {
  std::string reply;
  std::string error;
  if (!AskService("SETRING " + ring, reply, error)) return Fail(ExitCannotTell, error);
  if (reply != "OK") return Fail(ExitNeedsAttention, "the ring is not set: " + reply);
  Print("The ring is " + ring + "; the service checks now.\n");
  return ExitWell;
}

// Whether the window refuses this user. A user at the machine passes it too, but only the service
// can tell who that is.
bool WindowMayRefuse() {
  std::string reply;
  std::string error;
  return geteuid() != 0 && AskService("WINDOW", reply, error) && reply.starts_with("SHUT ");
}

// Puts the package on hold or takes it off. dpkg refuses both while it works.
int MarkPackage(const std::string& mark, bool paused) {
  if (!RequireRoot()) return ExitCannotTell;
  std::string output;
  const int32_t result = RunProcess({"apt-mark", mark, ClientPackageName}, {}, output);
  const PackageState package = ReadPackageState();
  if (result != 0 || package.IsPaused() != paused) {
    return Fail(ExitCannotTell, "apt-mark cannot " + mark + " the package (" + LastLine(output) +
                                    "); try again when no package tool runs");
  }
  Print(paused ? "The machine is paused: no release is installed, and none is rolled back.\n"
               : "The machine is not paused.\n");
  return ExitWell;
}

}  // namespace

int RunStatus(const Arguments& arguments) {
  const bool asJson = arguments == Arguments{"--json"};
  if (!asJson && !arguments.empty()) return FailUsage("status takes only --json");
  const MachineStatus status = ReadMachineStatus();
  Print(asJson ? StatusJson(status) : StatusText(status));
  return status.exitStatus;
}

int RunWatch(const Arguments& arguments) {
  if (!arguments.empty()) return FailUsage("watch takes no arguments");
  std::string shown;
  for (;;) {
    const std::string text = StatusText(ReadMachineStatus());
    if (text != shown) Print(shown.empty() ? text : "\n" + text);
    if (ferror(stdout) != 0) return ExitCannotTell;
    shown = text;
    SleepMs(WatchPauseMs);
  }
}

int RunApply(const Arguments& arguments) {
  if (!arguments.empty()) return FailUsage("apply takes no arguments");
  std::string reply;
  std::string error;
  if (!AskService("APPLY", reply, error)) return Fail(ExitCannotTell, error);
  if (reply == "ERR nothing is staged") {
    return Fail(ExitNeedsAttention, "no release is staged; run \"check --wait\" first");
  }
  if (reply == "ERR a session is live") {
    return Fail(ExitNeedsAttention,
                "a client holds a session; try again when the user has ended "
                "it");
  }
  if (reply != "OK applying") return Fail(ExitCannotTell, "unexpected reply: " + reply);
  Print("The service tries the install; \"log -f\" shows how it ends.\n");
  if (WindowMayRefuse()) {
    Print("The window is shut: only root and a user at the machine may install now.\n");
  }
  return ExitWell;
}

int RunRing(const Arguments& arguments) {
  if (arguments.empty()) {
    Print(ReadChannel() + "\n");
    return ExitWell;
  }
  const std::string& ring = arguments[0];
  if (arguments.size() > 1 || !IsRing(ring)) {
    return FailUsage("ring takes one of dev, beta and prod");
  }
  return SetRing(ring);
}

int RunWindow(const Arguments& arguments) {
  if (!arguments.empty()) return FailUsage("window takes no arguments");
  std::string reply;
  std::string error;
  if (!AskService("WINDOW", reply, error)) return Fail(ExitCannotTell, error);
  const std::string opens = NextOpening();
  Print(reply + "\n" + (opens == "open" ? "" : "opens " + opens + "\n"));
  return ExitWell;
}

int RunId(const Arguments& arguments) {
  if (!arguments.empty()) return FailUsage("id takes no arguments");
  if (!RequireRoot()) return ExitCannotTell;
  const std::string id = PrintableText(TrimLineEnd(ReadWholeFile(InstallIdPath())));
  if (id.empty()) {
    return Fail(ExitCannotTell, "the install id does not exist yet; run \"check\", which makes it");
  }
  Print(id + "\n");
  return ExitWell;
}

int RunLog(const Arguments& arguments) {
  const bool follows = arguments == Arguments{"-f"};
  if (!follows && !arguments.empty()) return FailUsage("log takes only -f");
  const char* follow = follows ? "--follow" : nullptr;
  execlp("journalctl", "journalctl", "--unit=vantrell-harbor-updated*", follow, nullptr);
  return Fail(ExitCannotTell, std::string("cannot run journalctl (") + strerror(errno) + ")");
}

int RunPause(const Arguments& arguments) {
  if (!arguments.empty()) return FailUsage("pause takes no arguments");
  return MarkPackage("hold", true);
}

int RunResume(const Arguments& arguments) {
  if (!arguments.empty()) return FailUsage("resume takes no arguments");
  return MarkPackage("unhold", false);
}

}  // namespace Vantrell::Control
