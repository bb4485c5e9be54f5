#include "apply/process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/descriptor.h"
#include "base/lines.h"
#include "base/steady_time.h"

namespace Vantrell {
namespace {

constexpr size_t ReadBlockBytes = 4096;
constexpr size_t CaptureLimitBytes = 262144;  // a block is kept while less than this is held
constexpr int64_t ExitPollMs = 100;

// The strings must outlive the pointers.
std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// Nothing in the service changes its environment after start, so no lock is needed. An extra
// entry stands behind an inherited one of the same name, and does not replace it.
std::vector<std::string> ChildEnvironment(const std::vector<std::string>& extraEnv) {
  std::vector<std::string> entries;
  for (char** entry = environ; *entry != nullptr; ++entry) entries.emplace_back(*entry);
  entries.insert(entries.end(), extraEnv.begin(), extraEnv.end());
  return entries;
}

bool Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv,
           int outputEnd, pid_t& child) {
  const std::vector<std::string> environment = ChildEnvironment(extraEnv);
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return false;
  (void)posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  (void)posix_spawn_file_actions_adddup2(&actions, outputEnd, STDOUT_FILENO);
  (void)posix_spawn_file_actions_adddup2(&actions, outputEnd, STDERR_FILENO);
  // libcurl makes its sockets without close-on-exec: a transfer on another thread must not
  // live on in a tool, nor in what a maintainer script leaves behind.
  (void)posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  // No attributes: a child keeps the service's signal settings, an ignored SIGPIPE included.
  const int failure = posix_spawnp(&child, argv[0].c_str(), &actions, nullptr,
                                   Pointers(argv).data(), Pointers(environment).data());
  (void)posix_spawn_file_actions_destroy(&actions);
  return failure == 0;
}

// What goes over the limit is read and dropped: the child must never block on a full pipe.
std::string ReadToEnd(int outputEnd) {
  std::string captured;
  char block[ReadBlockBytes];
  for (;;) {
    const ssize_t got = read(outputEnd, block, sizeof block);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return captured;
    if (captured.size() < CaptureLimitBytes) captured.append(block, static_cast<size_t>(got));
  }
}

int32_t ReapChild(pid_t child) {
  // Stays 0 when the wait fails for good: such a child counts as a success.
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  constexpr int SignalBits = 0x7f;
  return (status & SignalBits) != 0 ? -1 : WEXITSTATUS(status);
}

}  // namespace

int32_t RunProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv,
                   std::string& output) {
  int ends[2] = {};
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);

  pid_t child = 0;
  const bool started = Spawn(argv, extraEnv, writeEnd.Number(), child);
  writeEnd = Descriptor();  // the end of the output comes when the child has closed its own
  if (!started) {
    output = "cannot run " + argv[0];
    return -1;
  }
  std::string captured = ReadToEnd(readEnd.Number());
  readEnd = Descriptor();
  const int32_t result = ReapChild(child);
  output = std::move(captured);
  return result;
}

std::string LastLine(std::string_view text) {
  const std::string content = TrimLineEnd(text);
  // npos + 1 is 0: one line alone is the last.
  return content.substr(content.rfind('\n') + 1);
}

void WaitForProcessExit(uint32_t pid, uint32_t limitMs) {
  const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (process) {
    pollfd gone = {process.Number(), POLLIN, 0};
    (void)poll(&gone, 1, static_cast<int>(limitMs));  // an interruption ends the wait
    return;
  }
  // An older kernel, or the process is gone already.
  const int64_t deadline = SteadyNowMs() + limitMs;
  while (kill(static_cast<pid_t>(pid), 0) == 0 && SteadyNowMs() < deadline) SleepMs(ExitPollMs);
}

}  // namespace Vantrell
