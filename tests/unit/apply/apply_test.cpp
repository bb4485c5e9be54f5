#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tuple>

#include "apply/client_replacement.h"
#include "apply/process_runner.h"
#include "apply/staged_set.h"
#include "base/descriptor.h"
#include "base/steady_time.h"
#include "tests/unit/temporary_folder.h"

namespace Vantrell {

const std::tuple<std::vector<std::string>, int, std::string> Commands[] = {
    {{"sh", "-c", "echo a; echo b >&2; echo c; exit 7"}, 7, "a\nb\nc\n"},
    {{"sh", "-c", "echo so far; kill -KILL $$"}, -1, "so far\n"},
    {{"printf", "%s|", "a b", "$HOME", ""}, 0, "a b|$HOME||"},
    {{"printenv", "PATH"}, 0, std::string(getenv("PATH")) + "\n/behind\n"},
    {{"cat"}, 0, ""},
    {{"vantrell-no-such-program", "x"}, -1, "cannot run vantrell-no-such-program"},
};

TEST(RunProcess, GivesExitCodeAndOutputOfAChildWithoutInput) {
  const TemporaryFolder folder;
  const Descriptor ours(dup(STDIN_FILENO));
  const Descriptor text(open(folder.Write("input", "text").c_str(), O_RDONLY));
  ASSERT_EQ(dup2(text.Number(), STDIN_FILENO), STDIN_FILENO);
  for (const auto& [argv, result, expected] : Commands) {
    std::string output = "old";
    EXPECT_EQ(RunProcess(argv, {"PATH=/behind"}, output), result) << argv[0];
    EXPECT_EQ(output, expected) << argv[0];
  }
  (void)dup2(ours.Number(), STDIN_FILENO);
}

TEST(RunProcess, KeepsTheBeginningOfALongOutput) {
  std::string expected;
  for (int line = 1000001; line <= 1131072; ++line) expected += std::to_string(line) + "\n";
  std::string output;
  EXPECT_EQ(RunProcess({"seq", "1000001", "1131072"}, {}, output), 0);
  EXPECT_LE(output.size(), 266239u);
  EXPECT_TRUE(output.size() >= 262144 && expected.starts_with(output));
}

TEST(LastLine, LeavesOutTrailingLineEnds) { EXPECT_EQ(LastLine("x\na\r\n\rb\rc\r\n\n"), "\rb\rc"); }

TEST(WaitForProcessExit, EndsWithTheProcessOrTheLimit) {
  const pid_t child = fork();
  if (child == 0) _exit(pause());
  const int64_t start = SteadyNowMs();
  WaitForProcessExit(static_cast<uint32_t>(child), 150);
  EXPECT_GE(SteadyNowMs() - start, 150);
  EXPECT_EQ(kill(child, SIGKILL), 0);
  WaitForProcessExit(static_cast<uint32_t>(child), 60000);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  WaitForProcessExit(static_cast<uint32_t>(child), 60000);
  EXPECT_LT(SteadyNowMs() - start, 60000);
}

TEST(StagedSet, IsTheListedFilesAndNoOther) {
  const TemporaryFolder folder;
  const auto expect = [&](const std::vector<ManifestFile>& files, const std::string& verdict) {
    std::string error = "good";
    EXPECT_EQ(VerifyStagedSet(folder.Path("set"), {"", "", "", files}, error), verdict == "good");
    EXPECT_EQ(error, verdict);
  };
  const char* hash = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  const char* upper = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
  expect({}, "the staged set is empty");
  std::filesystem::create_directories(folder.Path("set/nothing/in"));
  const std::string file = folder.Write("set/sub/b", "abc");
  expect({{"sub/b", hash, 0, ""}}, "good");
  expect({{"sub/b", upper, 0, ""}}, "sub/b: sha256 no longer matches the manifest");
  expect({{"sub/c", hash, 0, ""}}, "sub/c: missing from the staged set");
  std::filesystem::create_symlink(folder.Path("set/nothing"), folder.Path("set/link"));
  expect({{"sub/b", hash, 0, ""}}, "the staged set has 2 files, the manifest lists 1");
  std::filesystem::remove(file);
  expect({{"link", hash, 0, ""}}, "link: missing from the staged set");
}

TEST(KioskClient, LivesUnderASystemUnit) {
  EXPECT_TRUE(IsKioskClient({0, 0, {}, {}, "kiosk.service"}));
  EXPECT_FALSE(IsKioskClient({0, 0, {}, {}, "user@1.service"}));
  EXPECT_FALSE(IsKioskClient({0, 0, {}, {}, "session-1.scope"}));
}

}  // namespace Vantrell
