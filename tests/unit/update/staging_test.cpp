#include "update/staging.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "tests/unit/temporary_folder.h"
#include "tests/unit/update/curl_options.h"

namespace Vantrell {
namespace {
int syncs = 0;
}

// Takes the place of the C library's function in the test program.
extern "C" int fsync(int descriptor) {
  ++syncs;
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}

TEST(Download, FollowsNoLinkAndUsesHttpsOnlyAndSyncsAndRemovesItsFileAndHasATimeLimit) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  std::filesystem::create_symlink(path, folder.Path("link"));
  std::string error;
  EXPECT_FALSE(DownloadToFile("https://127.0.0.1:1/", folder.Path("link"), error));
  EXPECT_EQ(error, "cannot create staging file");
  syncs = 0;
  EXPECT_FALSE(DownloadToFile("http://127.0.0.1:1/", path, error));
  EXPECT_EQ(error, "download failed, Unsupported protocol");
  EXPECT_EQ(syncs, 1);
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(options[CURLOPT_TIMEOUT_MS], 1800000);
}

}  // namespace Vantrell
