#include <cstdio>
#include <string_view>

#include "base/deployment.h"
#include "service/lifecycle.h"

int main(int argc, char** argv) {
  // Only the first argument is ever looked at; every other one starts the service.
  if (argc > 1 && std::string_view(argv[1]) == "--version") {
    (void)printf("vantrell-harbor-updated %s (%s)\n", Vantrell::BuildStamp,
                 Vantrell::ReleaseComponent);
    return 0;
  }
  return Vantrell::ClientUpdateService::RunService();
}
