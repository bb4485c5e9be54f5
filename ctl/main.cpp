// vantrell-harbor-updatectl: shows and steers the update service of this machine.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "ctl/check_command.h"
#include "ctl/exit_status.h"
#include "ctl/messages.h"
#include "ctl/plain_commands.h"
#include "ctl/seed_command.h"
#include "ctl/support_command.h"

namespace Vantrell::Control {
namespace {

constexpr char Help[] =
    "usage: vantrell-harbor-updatectl COMMAND [ARGUMENT]\n"
    "\n"
    "Shows and steers the update service of this machine.\n"
    "\n"
    "  status [--json]   what the service says, the package, the last install, the units\n"
    "  watch             the status, and again after each change\n"
    "  check [--wait]    have the service check for a release; wait for the outcome\n"
    "  apply             install the staged release now\n"
    "  ring [NAME]       show the update ring, or set it to dev, beta or prod\n"
    "  window            show the maintenance window, and when it opens\n"
    "  log [-f]          the journal of the service; -f follows it\n"
    "  pause, resume     put the package on hold, or end the hold (root)\n"
    "  id                show the install id (root)\n"
    "  seed PACKAGE      make the installed package the rollback copy (root)\n"
    "  support FILE      write an archive for a support ticket\n"
    "\n"
    "Exit status: 0 well, 1 needs attention, 2 cannot tell, 64 wrong usage.\n";

struct Command {
  std::string_view name;
  int (*run)(const Arguments& arguments);
};

constexpr Command Commands[] = {
    {"status", RunStatus}, {"watch", RunWatch},   {"check", RunCheck}, {"apply", RunApply},
    {"ring", RunRing},     {"window", RunWindow}, {"log", RunLog},     {"pause", RunPause},
    {"resume", RunResume}, {"id", RunId},         {"seed", RunSeed},   {"support", RunSupport},
};

int PrintHelp() {
  fputs(Help, stdout);
  return ExitWell;
}

int Run(const Arguments& words) {
  if (words.empty()) return FailUsage("no command was given");
  const Arguments arguments(words.begin() + 1, words.end());
  for (const std::string& word : words) {
    if (word == "--help" || word == "-h") return PrintHelp();
  }
  for (const Command& command : Commands) {
    if (words[0] == command.name) return command.run(arguments);
  }
  return FailUsage("unknown command");
}

}  // namespace
}  // namespace Vantrell::Control

int main(int count, char** words) {
  // The programs that this one runs must be the system's, and their output must not be translated.
  setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  unsetenv("TZ");  // the window is in the time of the machine, and not in that of the user
  const int status = Vantrell::Control::Run({words + 1, words + count});
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
  return Vantrell::Control::Fail(Vantrell::Control::ExitCannotTell,
                                 "the standard output cannot be written");
}
