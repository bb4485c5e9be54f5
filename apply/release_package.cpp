#include "apply/release_package.h"

#include "apply/process_runner.h"
#include "base/deployment.h"
#include "base/failure.h"
#include "base/lines.h"

namespace Vantrell {
namespace {

constexpr char PackageSuffix[] = ".deb";
constexpr char PackageArchitecture[] = "amd64";

}  // namespace

bool FindPackage(const std::string& stagedRoot, const UpdateManifest& manifest,
                 std::string& packagePath, std::string& error) {
  packagePath.clear();
  for (const ManifestFile& file : manifest.files) {
    if (!file.name.ends_with(PackageSuffix)) continue;
    if (!packagePath.empty()) return FailWith("the manifest lists more than one package", error);
    packagePath = stagedRoot + "/" + file.name;
  }
  if (packagePath.empty()) return FailWith("the manifest lists no package", error);
  return true;
}

bool CheckPackageFields(const std::string& packagePath, const std::string& version,
                        std::string& error) {
  std::string output;
  const int32_t result =
      RunProcess({"dpkg-deb", "-f", packagePath, "Package", "Version", "Architecture"}, {}, output);
  if (result != 0) return FailWith("the staged package is unreadable: " + LastLine(output), error);

  const std::string package = ClientPackageName;
  const std::string architecture = PackageArchitecture;
  const std::string expected =
      "Package: " + package + "\nVersion: " + version + "\nArchitecture: " + architecture;
  if (TrimLineEnd(output) == expected) return true;
  return FailWith("the staged package is not " + package + " " + version + " " + architecture,
                  error);
}

}  // namespace Vantrell
