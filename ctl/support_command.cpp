#include "ctl/support_command.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "apply/process_runner.h"
#include "base/directories.h"
#include "base/lines.h"
#include "ctl/durable_files.h"
#include "ctl/exit_status.h"
#include "ctl/machine_status.h"
#include "ctl/messages.h"
#include "ctl/printable_text.h"
#include "ctl/status_report.h"

namespace Vantrell::Control {
namespace {

struct Piece {
  const char* file;
  const char* script;
};

// No script prints the install id, the machine id or the name of the host.
constexpr Piece Pieces[] = {
    {"journal.txt",
     "journalctl --no-pager --no-hostname --output=short-iso-precise --lines=20000 "
     "--unit='vantrell-harbor-updated*'"},
    {"package.txt",
     "dpkg --status vantrell-harbor; dpkg --audit; dpkg --verify vantrell-harbor; ls "
     "/var/lib/dpkg/updates"},
    {"units.txt", "systemctl cat 'vantrell-harbor-updated*'"},
    {"update.conf", "cat /etc/vantrell-harbor/update.conf"},
    {"state-directory.txt",
     "ls -lAR --time-style=full-iso --quoting-style=escape /var/lib/vantrell-harbor"},
    {"system.txt", "date; uname -srvm; cat /etc/os-release; df -h / /var /run; free -m"},
};

// A script that fails has said why in its file.
void Collect(const std::string& folder) {
  std::string output;
  for (const Piece& piece : Pieces) {
    RunProcess(
        {"sh", "-c", "exec >\"$0\" 2>&1; " + std::string(piece.script), folder + "/" + piece.file},
        {}, output);
  }
}

// Makes the archive in the temporary folder, and then copies it to a file that does not exist yet.
int WriteArchive(const std::string& temporary, const std::string& target) {
  const std::string folder = temporary + "/vantrell-support";
  const std::string archive = temporary + "/archive";
  std::string error;
  mkdir(folder.c_str(), 0700);
  Collect(folder);
  if (!ReplaceFile(folder + "/status.json", StatusJson(ReadMachineStatus()), error)) {
    return Fail(ExitCannotTell, "the status cannot be written (" + error + ")");
  }
  std::string output;
  if (RunProcess({"tar", "-C", temporary, "-czf", archive, "vantrell-support"}, {}, output) != 0) {
    return Fail(ExitCannotTell, "tar fails: " + LastLine(output));
  }
  if (CopyToNewFile(archive, target, error)) return ExitWell;
  return Fail(ExitCannotTell, "the archive cannot be written (" + error + ")");
}

}  // namespace

int RunSupport(const Arguments& arguments) {
  if (arguments.size() != 1 || arguments[0].empty() || arguments[0][0] == '-') {
    return FailUsage("support takes the name of a new file");
  }
  char temporary[] = "/tmp/vantrell-support.XXXXXX";
  if (mkdtemp(temporary) == nullptr) {
    return Fail(ExitCannotTell, "/tmp cannot be written; make room there");
  }
  const int status = WriteArchive(temporary, arguments[0]);
  RemoveTree(temporary);
  if (status != ExitWell) return status;
  printf(
      "Wrote %s, a compressed tar archive: status, journal, package, units, settings, names and "
      "sizes of the state files, system.\n"
      "It can hold names of users. It holds no install id, machine id or key.\n",
      PrintableText(arguments[0]).c_str());
  if (geteuid() != 0) puts("Run it as root: other users may lack the journal and the state files.");
  return ExitWell;
}

}  // namespace Vantrell::Control
