#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "base/build_stamp.h"
#include "base/deployment.h"
#include "base/leak_check.h"
#include "service/lifecycle.h"

int main(int argc, char** argv) {
  // Only the first argument is used. Any other text than this one starts the service.
  if (argc > 1 && std::string_view(argv[1]) == "--version") {
    printf("%s %s (%s)\n", Vantrell::DaemonName, Vantrell::BuildStamp, Vantrell::ReleaseComponent);
    return 0;
  }
  const int status = Vantrell::ClientUpdateService::RunService();
  Vantrell::CheckForLeaks();
  // _exit() skips the exit handlers. A check pass on a detached thread may still run, and the exit
  // handlers of the TLS library free memory that it uses: a crash would replace the exit status.
  _exit(status);
}
