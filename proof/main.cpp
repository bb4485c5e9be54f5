#include <signal.h>

#include <string>

#include "base/log_line.h"
#include "proof/package_proof.h"

// prove-package PATH COPY: the status is 0 when the copy is proved, and 1 when it is not.
int main(int argc, char** argv) {
  constexpr int ArgumentCount = 3;  // with the name of the program
  if (argc != ArgumentCount) {
    Vantrell::LogLine("usage: prove-package PATH COPY");
    return 1;
  }
  signal(SIGPIPE, SIG_IGN);  // from a connection, or from a service that was killed
  std::string error;
  if (Vantrell::ProvePackage(argv[1], argv[2], error)) return 0;
  Vantrell::LogLine("the package is not proved, so nothing is installed: %s", error.c_str());
  return 1;
}
