#include "ctl/rollback_copy.h"

#include <unistd.h>

#include "base/file_content.h"
#include "trust/digest.h"
#include "update/state_directory.h"

namespace Vantrell::Control {

std::string RollbackCopyState() {
  if (geteuid() != 0) return "unknown";
  if (access(RollbackCopyPath().c_str(), F_OK) != 0) return "missing";
  std::string digest;
  if (!Sha256File(RollbackCopyPath(), digest)) return "damaged";
  const std::string record = ReadWholeFile(InstalledRecordPath());
  return record.find(".deb " + digest + "\n") == std::string::npos ? "damaged" : "proved";
}

}  // namespace Vantrell::Control
