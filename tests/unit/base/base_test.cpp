#include <fcntl.h>

#include <ctime>
#include <thread>

#include "base/descriptor.h"
#include "base/directories.h"
#include "base/file_content.h"
#include "base/log_line.h"
#include "base/own_thread.h"
#include "base/steady_time.h"
#include "tests/unit/temporary_folder.h"

namespace Vantrell {

namespace fs = std::filesystem;

TEST(MakeDirs, MakesParentsWithTheModeAndLeavesWhatExists) {
  const TemporaryFolder folder;
  for (const mode_t mode : {0700u, 0500u}) EXPECT_TRUE(MakeDirs(folder.Path("a/b"), mode));
  EXPECT_EQ(fs::status(folder.Path("a/b")).permissions(), fs::perms::owner_all);
  fs::create_symlink("absent", folder.Path("link"));
  EXPECT_TRUE(MakeDirs(folder.Path("link"), 0755));
  const std::string file = folder.Write("file", "");
  for (const auto& path : {file, file + "/b", std::string()}) EXPECT_FALSE(MakeDirs(path, 0755));
}

TEST(RemoveTree, RemovesEverythingBelowAndFollowsNoLink) {
  const TemporaryFolder folder;
  const std::string kept = folder.Write("kept/file", "");
  folder.Write("gone/deep/file", "");
  fs::create_symlink(folder.Path("kept"), folder.Path("gone/deep/link"));
  // The path ends at the NUL, whatever is appended to it.
  EXPECT_TRUE(RemoveTree(folder.Path("gone") + '\0'));
  EXPECT_TRUE(RemoveTree(folder.Path("absent")));
  EXPECT_FALSE(fs::exists(folder.Path("gone")));
  EXPECT_TRUE(fs::exists(kept));
}

// The two directories list their entries in the same order, so one of the removals meets the entry
// that its path leads through last, and the other one first.
TEST(RemoveTree, EndsWhenItHasRemovedItsOwnPath) {
  const TemporaryFolder folder;
  std::string left;
  for (const std::string through : {"one", "two"}) {
    for (const std::string name : {"one", "two"}) folder.Write(through + "/" + name + "/file", "");
    EXPECT_FALSE(RemoveTree(folder.Path(through + "/" + through + "/..")));
    for (const std::string name : {"one", "two"}) {
      if (fs::exists(folder.Path(through + "/" + name + "/file"))) left += name;
    }
  }
  EXPECT_TRUE(left == "one" || left == "two") << left;
}

TEST(IsRegularFile, IsTrueForALinkToAFileAndFalseForADirectory) {
  const TemporaryFolder folder;
  fs::create_symlink(folder.Write("file", ""), folder.Path("link"));
  EXPECT_TRUE(IsRegularFile(folder.Path("link")));
  EXPECT_FALSE(IsRegularFile(folder.Path("")));
}

TEST(LogLine, WritesALineAtOnce) {
  int ends[2] = {};
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_DIRECT), 0);  // one read returns one write
  const Descriptor readEnd(ends[0]);
  const Descriptor writeEnd(ends[1]);
  const Descriptor usual(dup(STDERR_FILENO));
  dup2(writeEnd.Number(), STDERR_FILENO);
  LogLine("%s has %d lines", "this", 1);
  dup2(usual.Number(), STDERR_FILENO);
  char line[100] = {};
  EXPECT_EQ(read(readEnd.Number(), line, sizeof line), 17);
  EXPECT_STREQ(line, "this has 1 lines\n");
}

TEST(RunOnOwnThread, UsesTheCallingThreadOnlyWhereNoOtherCanBeMade) {
  std::thread::id worker;
  const auto work = [&worker] { worker = std::this_thread::get_id(); };
  RunOnOwnThread(work);
  EXPECT_NE(worker, std::this_thread::get_id());
  pthread_attr_t usual;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  pthread_attr_t impossible = usual;
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, 1UL << 60), 0);  // over the address space
  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  RunOnOwnThread(work);
  ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
  EXPECT_EQ(worker, std::this_thread::get_id());
}

TEST(SteadyNowMs, ReadsTheMonotonicClock) {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  EXPECT_NEAR(static_cast<double>(SteadyNowMs()), static_cast<double>(now.tv_sec) * 1000, 60000);
}

}  // namespace Vantrell
