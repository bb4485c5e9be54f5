#include "ctl/rollback_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include "base/directories.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "ctl/durable_files.h"
#include "trust/digest.h"
#include "update/installed_record.h"
#include "update/state_directory.h"

namespace Vantrell::Control {

std::string RollbackCopyState() {
  if (geteuid() != 0) return "unknown";
  if (access(RollbackCopyPath().c_str(), F_OK) != 0) return "missing";
  std::string digest;
  if (!Sha256File(RollbackCopyPath(), digest)) return "damaged";
  const std::string recorded = RecordedPackageHash(ReadWholeFile(InstalledRecordPath()));
  return digest == recorded ? "proved" : "damaged";
}

bool PlaceRollbackCopy(const std::string& source, const std::string& name, std::string& error) {
  ManifestFile file;
  file.name = name;
  if (!Sha256File(source, file.sha256)) return FailWith(source + " cannot be read", error);
  MakeDirs(ClientRollbackDir(), 0700);
  chmod(ClientRollbackDir().c_str(), 0700);
  // The repair at the start of the service takes a file of this name if the record names it.
  const std::string fresh = RollbackCopyPath() + ".new";
  return MoveFile(source, fresh, error) &&
         ReplaceFile(InstalledRecordPath(), InstalledRecordLine(file), error) &&
         MoveFile(fresh, RollbackCopyPath(), error);
}

}  // namespace Vantrell::Control
