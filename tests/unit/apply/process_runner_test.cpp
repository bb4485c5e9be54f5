#include "apply/process_runner.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <unistd.h>

#include <future>

#include "base/descriptor.h"

namespace Vantrell {
namespace {
bool actionsFail = false;
}

// Takes the place of the C library's function in the test program.
extern "C" int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* actions,
                                                        int from) noexcept {
  static const auto real = reinterpret_cast<decltype(&posix_spawn_file_actions_addclosefrom_np)>(
      dlsym(RTLD_NEXT, "posix_spawn_file_actions_addclosefrom_np"));
  return actionsFail ? ENOMEM : real(actions, from);
}

TEST(RunProcess, GivesTheExitCodeAndTheOutput) {
  ASSERT_NE(freopen(TEST_DATA_DIR "/README.md", "r", stdin), nullptr);
  const Descriptor inheritable(dup(STDIN_FILENO));
  const struct {
    std::string behaviour;
    std::vector<std::string> argv;
    int32_t result;
    std::string output;
  } cases[] = {
      {"both outputs in order", {"sh", "-c", "echo a; echo b >&2; exit 7"}, 7, "a\nb\n"},
      {"an end by a signal", {"sh", "-c", "echo so far; kill -KILL $$"}, -1, "so far\n"},
      {"no shell", {"printf", "%s|", "a b", "$HOME", ""}, 0, "a b|$HOME||"},
      {"one more variable", {"printenv", "EXTRA"}, 0, "a b\n"},
      {"no input", {"cat"}, 0, ""},
      {"no other descriptor; 3 is its own", {"ls", "/proc/self/fd"}, 0, "0\n1\n2\n3\n"},
      {"no program", {"vantrell-no-such-program", "x"}, -1, "cannot run vantrell-no-such-program"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    std::string output = "old";
    EXPECT_EQ(RunProcess(given.argv, {"EXTRA=a b"}, output), given.result);
    EXPECT_EQ(output, given.output);
  }
}

TEST(RunProcess, StartsNothingWithoutItsFileActions) {
  actionsFail = true;
  std::string output;
  EXPECT_EQ(RunProcess({"true"}, {}, output), -1);
  EXPECT_EQ(output, "cannot run true");
  actionsFail = false;
}

TEST(RunProcess, KeepsTheBeginningOfALongOutput) {
  std::string output;
  EXPECT_EQ(RunProcess({"seq", "100000"}, {}, output), 0);
  EXPECT_TRUE(output.starts_with("1\n2\n"));
  EXPECT_GE(output.size(), 262144u);
  EXPECT_LE(output.size(), 266239u);
}

TEST(LastLine, LeavesOutTheLineEndsAtTheEnd) {
  EXPECT_EQ(LastLine("x\na\r\n\rb\rc\r\n\n"), "\rb\rc");
}

TEST(WaitForProcessExit, EndsAtOnceWithoutTheProcess) {
  const int64_t start = SteadyNowMs();
  WaitForProcessExit(1U << 30, 60000);  // above all process ids
  EXPECT_LT(SteadyNowMs() - start, 60000);
}

// A thread has no pidfd, so its end is polled for.
TEST(WaitForProcessExit, EndsAtTheLimitForAProcessAndForAThread) {
  std::promise<pid_t> thread;
  std::thread([&thread] {
    thread.set_value(gettid());
    SleepMs(20000);
  }).detach();
  for (const pid_t id : {getpid(), thread.get_future().get()}) {
    const int64_t start = SteadyNowMs();
    WaitForProcessExit(static_cast<uint32_t>(id), 150);
    EXPECT_GE(SteadyNowMs() - start, 150);
    EXPECT_LT(SteadyNowMs() - start, 15000);
  }
}

}  // namespace Vantrell
