// Times a child that ends at once: with the function of the service, which also collects its
// output, and with bare posix_spawnp(). Prints both times of each round, in microseconds.
//
//   start_child RESIDENT_MEBIBYTES ROUNDS

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "apply/process_runner.h"
#include "bench/stopwatch.h"

namespace Vantrell {
namespace {

void Require(bool succeeded) {
  if (succeeded) return;
  fprintf(stderr, "start_child: the program \"true\" failed\n");
  exit(1);
}

void StartOurs() {
  std::string output;
  Require(RunProcess({"true"}, {}, output) == 0);
}

void StartBare() {
  const char* const arguments[] = {"true", nullptr};
  pid_t child = 0;
  int status = 0;
  Require(posix_spawnp(&child, "true", nullptr, nullptr, const_cast<char**>(arguments), environ) ==
              0 &&
          waitpid(child, &status, 0) == child && status == 0);
}

}  // namespace
}  // namespace Vantrell

int main(int argc, char** argv) {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): only main is outside of it
  if (argc != 3) return 2;
  const std::vector<char> resident(strtoul(argv[1], nullptr, 10) << 20, 'x');
  for (int round = atoi(argv[2]); round > 0; --round) {
    const double ours = Microseconds(StartOurs);
    printf("%.1f %.1f\n", ours, Microseconds(StartBare));
  }
  // The memory is in use until here.
  return resident.empty() || resident.back() == 'x' ? 0 : 1;
}
