#include "ctl/package_file.h"

#include "apply/process_runner.h"
#include "base/deployment.h"
#include "base/failure.h"
#include "base/file_content.h"
#include "base/lines.h"
#include "ctl/package_state.h"
#include "ctl/printable_text.h"

namespace Vantrell::Control {
namespace {

constexpr char InstalledSums[] = "/var/lib/dpkg/info/vantrell-harbor.md5sums";

// A field of the control file; empty when the file is not a package.
std::string Field(const std::string& path, const std::string& field) {
  std::string output;
  if (RunProcess({"dpkg-deb", "--field", path, field}, {}, output) != 0) return "";
  return PrintableText(TrimLineEnd(output));
}

// Two builds may have the same version. The sums of their files tell them apart.
bool HasInstalledFiles(const std::string& path) {
  std::string sums;
  const std::string installed = ReadWholeFile(InstalledSums);
  if (RunProcess({"dpkg-deb", "--info", path, "md5sums"}, {}, sums) != 0) return false;
  if (sums.size() >= CaptureLimitBytes) return installed.starts_with(sums);
  return !sums.empty() && installed == sums;
}

}  // namespace

bool IsInstalledPackage(const std::string& path, std::string& error) {
  const PackageState installed = ReadPackageState();
  if (!installed.IsInstalled()) {
    return FailWith(
        "the client's package is not completely installed; wait for the end of an install, "
        "or install it with apt-get",
        error);
  }
  if (Field(path, "Package") != ClientPackageName) {
    return FailWith(std::string("the file is not a package of ") + ClientPackageName +
                        "; give the package that is installed",
                    error);
  }
  const std::string version = Field(path, "Version");
  if (version != installed.version) {
    return FailWith("the file holds version " + version + ", but " + installed.version +
                        " is installed; give the package that is installed",
                    error);
  }
  if (HasInstalledFiles(path)) return true;
  return FailWith(
      "the file is another build of version " + version + "; give the package that is installed",
      error);
}

}  // namespace Vantrell::Control
