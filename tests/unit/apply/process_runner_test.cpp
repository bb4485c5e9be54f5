#include "apply/process_runner.h"

#include <sys/resource.h>
#include <unistd.h>

#include <future>

#include "base/descriptor.h"
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

}  // namespace Vantrell
