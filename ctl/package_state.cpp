#include "ctl/package_state.h"

#include <vector>

#include "apply/process_runner.h"
#include "base/deployment.h"
#include "base/lines.h"
#include "ctl/printable_text.h"

namespace Vantrell::Control {

PackageState ReadPackageState() {
  const std::string format =
      "${db:Status-Want}\\n${db:Status-Status}\\n${db:Status-Eflag}\\n${Version}\\n";
  std::string output;
  PackageState package;
  if (RunProcess({"dpkg-query", "-W", "-f=" + format, ClientPackageName}, {}, output) != 0) {
    return package;
  }
  const std::vector<std::string> lines = SplitLines(output);
  if (lines.size() != 4) return package;
  package.known = true;
  package.want = lines[0];
  package.state = lines[1];
  package.reinstallRequired = lines[2] != "ok";
  package.version = PrintableText(lines[3]);
  return package;
}

}  // namespace Vantrell::Control
