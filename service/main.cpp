#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "base/build_stamp.h"
#include "base/deployment.h"
#include "service/lifecycle.h"

int main(int argc, char** argv) {
  // Only the first argument is ever looked at; every other one starts the service.
  if (argc > 1 && std::string_view(argv[1]) == "--version") {
    (void)printf("%s %s (%s)\n", Vantrell::DaemonName, Vantrell::BuildStamp,
                 Vantrell::ReleaseComponent);
    return 0;
  }
  // Without the exit handlers: those of the TLS library would pull the ground from under a
  // check pass that still runs on a detached thread, and its crash would replace the status.
  _exit(Vantrell::ClientUpdateService::RunService());
}
