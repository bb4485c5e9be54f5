// Times the scan for clients among COUNT processes: the function of the service, the smallest loop
// over the links of /proc, and pgrep. Prints the three times of each round, in microseconds.
//
//   unshare --pid --fork --mount-proc scan_processes COUNT ROUNDS

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/deployment.h"
#include "bench/idle_processes.h"
#include "bench/stopwatch.h"
#include "identity/client_process.h"
#include "identity/kiosk_supervisor.h"

// In minimal_scan.c.
extern "C" int CountProcessesOf(const char* path);

namespace Vantrell {
namespace {

// pgrep exits with 1 when it finds no process.
void RunPgrep() {
  const char* const arguments[] = {"pgrep", "-x", "vantrell-harbor", nullptr};
  pid_t child = 0;
  int status = 0;
  if (posix_spawnp(&child, "pgrep", nullptr, nullptr, const_cast<char**>(arguments), environ) !=
          0 ||
      waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 1) {
    fprintf(stderr, "scan_processes: pgrep failed\n");
    exit(1);
  }
}

void RequireNone(bool none) {
  if (none) return;
  fprintf(stderr, "scan_processes: a client runs here, or /proc cannot be read\n");
  exit(1);
}

}  // namespace
}  // namespace Vantrell

int main(int argc, char** argv) {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): only main is outside of it
  if (argc != 3) return 2;
  const std::vector<pid_t> processes = StartIdleProcesses(atoi(argv[1]));
  const auto scan = [] { RequireNone(FindClientPids(-1).empty()); };
  const auto loop = [] { RequireNone(CountProcessesOf(ClientBinaryPath) == 0); };
  for (int round = atoi(argv[2]); round > 0; --round) {
    const double pgrep = Microseconds(RunPgrep);
    loop();  // pgrep has filled the caches of the processor with its own data
    const double ours = Microseconds(scan);
    printf("%.1f %.1f %.1f\n", ours, Microseconds(loop), pgrep);
  }
  for (const pid_t process : processes) kill(process, SIGKILL);
  return 0;
}
