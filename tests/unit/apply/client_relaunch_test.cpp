#include "apply/client_relaunch.h"

#include <gtest/gtest.h>
#include <pwd.h>

#include <cerrno>

#include "tests/unit/temporary_folder.h"

namespace {

int errnoOfFirstLookUp;

}  // namespace

// Replaces the C library's: the first lookup fails, and the second one finds the account.
extern "C" passwd* getpwuid(uid_t /*uid*/) {
  static char name[] = "alice";
  static passwd account = {};
  account.pw_name = name;
  errno = errnoOfFirstLookUp;
  errnoOfFirstLookUp = 0;
  return errno == 0 ? &account : nullptr;
}

namespace Vantrell {

TEST(RelaunchClient, LooksUpAgainAfterAnErrorThatMayPassOnly) {
  const TemporaryFolder folder;
  const std::filesystem::path tool = folder.Write("systemd-run", "#!/bin/sh\n");
  std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
  const std::string path = getenv("PATH");
  setenv("PATH", (tool.parent_path().string() + ":" + path).c_str(), 1);
  for (const int error : {EMFILE, ENFILE, ENOMEM, EAGAIN, EIO, ENOENT}) {
    errnoOfFirstLookUp = error;
    EXPECT_EQ(RelaunchClient({}).nothingToJudge, error == ENOENT) << error;
  }
  setenv("PATH", path.c_str(), 1);
}

}  // namespace Vantrell
