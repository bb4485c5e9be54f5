#include "ctl/messages.h"

#include <unistd.h>

#include <cstdio>

#include "ctl/exit_status.h"
#include "ctl/printable_text.h"

namespace Vantrell::Control {

int Fail(int status, const std::string& sentence) {
  fprintf(stderr, "%s: %s.\n", ProgramName, PrintableText(sentence).c_str());
  return status;
}

int FailUsage(const std::string& sentence) { return Fail(ExitUsage, sentence + "; see --help"); }

bool RequireRoot() {
  if (geteuid() == 0) return true;
  Fail(ExitCannotTell, "this command needs root; run it with sudo");
  return false;
}

}  // namespace Vantrell::Control
