#include <sys/resource.h>
#include <unistd.h>

#include <future>

#include "apply/client_replacement.h"
#include "apply/process_runner.h"
#include "apply/staged_set.h"
#include "base/descriptor.h"
#include "tests/unit/temporary_folder.h"
#include "tests/unit/text_cases.h"

namespace Vantrell {

TEST(RunProcess, GivesTheOutputAndTheExitCode) {
  ASSERT_NE(freopen(TEST_DATA_DIR "/README.md", "r", stdin), nullptr);
  const Descriptor inheritable(dup(STDIN_FILENO));
  const std::vector<TextCase> cases = {
      {"one more variable, both outputs in order", "echo $EXTRA; echo b >&2; exit 7", "a\nb\n7"},
      {"an end by a signal", "echo so far; kill -KILL $$", "so far\n-1"},
      {"no input", "cat", "0"},
      {"no other descriptor; 3 is its own", "exec ls /proc/self/fd", "0\n1\n2\n3\n0"},
  };
  ExpectEach(cases, [](const std::string& script) {
    std::string output = "old";
    const int32_t result = RunProcess({"sh", "-c", script}, {"EXTRA=a"}, output);
    return output + std::to_string(result);
  });
}

TEST(RunProcess, StartsNothingWithoutItsFileActions) {
  const auto run = [] {
    // Room for the pipe. The last action names descriptor 3, which is over the limit.
    const rlimit limit = {3, 3};
    setrlimit(RLIMIT_NOFILE, &limit);
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    std::string output;
    const int32_t result = RunProcess({"true", "x"}, {}, output);
    fputs(output.c_str(), stderr);
    _exit(result);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(255), "cannot run true");
}

TEST(RunProcess, KeepsTheBeginningOfALongOutput) {
  std::string output;
  EXPECT_EQ(RunProcess({"seq", "100000"}, {}, output), 0);
  EXPECT_TRUE(output.starts_with("1\n2\n"));
  EXPECT_EQ(output.size() / 4096, 64u);  // all blocks that begin below the limit
}

TEST(LastLine, LeavesOutTheLineEndsAtTheEnd) {
  EXPECT_EQ(LastLine("x\na\r\n\rb\rc\r\n\n"), "\rb\rc");
}

// A thread has no pidfd, so its end is polled for.
TEST(WaitForProcessExit, EndsAtTheLimitForAProcessAndForAThreadAndAtOnceWithoutOne) {
  std::promise<pid_t> thread;
  std::thread([&thread] {
    thread.set_value(gettid());
    SleepMs(20000);
  }).detach();
  const auto id = static_cast<uint32_t>(thread.get_future().get());
  const int64_t start = SteadyNowMs();
  WaitForProcessExit(static_cast<uint32_t>(getpid()), 150);
  WaitForProcessExit(id, 150);
  EXPECT_GE(SteadyNowMs() - start, 300);
  WaitForProcessExit(1U << 30, 60000);  // above all process ids
  EXPECT_LT(SteadyNowMs() - start, 15000);
}

TEST(StagedSet, HasTheListedFilesAndNoOther) {
  const TemporaryFolder folder;
  folder.Write("set/sub/b", std::string(100000, 'x'));
  folder.Write("more/changed/sub/b", "");
  std::filesystem::create_directories(folder.Path("more/linked/sub/empty"));
  std::filesystem::create_symlink("../../../set/sub/b", folder.Path("more/linked/sub/b"));
  const std::string hash = "d69e68988157833272305aaf21f453c800346e8a3640db6578e260215542e5d4";
  const std::vector<TextCase> cases = {
      {"the listed file", "set", ""},
      {"a directory alone", "more/linked/sub/empty", "the staged set is empty"},
      {"a NUL in the path", {"set\0", 4}, "sub/b: missing from the staged set"},
      {"another content", "more/changed", "sub/b: sha256 no longer matches the manifest"},
      {"a link", "more/linked", "sub/b: missing from the staged set"},
      {"files of more directories", "", "the staged set has 3 files, the manifest lists 1"},
  };
  ExpectEach(cases, [&](const std::string& directory) {
    std::string error;
    const UpdateManifest manifest = {"", "", "", {{"sub/b", hash, 0, ""}}};
    const bool verified = VerifyStagedSet(folder.Path(directory), manifest, error);
    EXPECT_EQ(verified, error.empty());
    return error;
  });
}

TEST(KioskClient, RunsInAServiceThatIsNotAUserManager) {
  EXPECT_TRUE(IsKioskClient({0, 0, {}, {}, "kiosk.service"}));
  EXPECT_FALSE(IsKioskClient({0, 0, {}, {}, "user@1.service"}));
}

}  // namespace Vantrell
