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
#include "base/read_input.h"

namespace Vantrell {
namespace {

constexpr size_t ReadBlockBytes = 4096;
constexpr Milliseconds ExitPollMs = 100;

// A list of pointers as posix_spawnp() takes it. `texts` must live longer than the list.
std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// The service does not change its environment after the start, so no lock is needed. An extra entry
// follows an inherited one of the same name, and does not replace it.
std::vector<std::string> ChildEnvironment(const std::vector<std::string>& extraEnv) {
  std::vector<std::string> entries;
  for (char** entry = environ; *entry != nullptr; ++entry) entries.emplace_back(*entry);
  entries.insert(entries.end(), extraEnv.begin(), extraEnv.end());
  return entries;
}

// What a child does between fork and exec. False when the actions could not be added: the child
// would then run with the service's own descriptors.
bool AddFileActions(posix_spawn_file_actions_t& actions, int outputEnd) {
  return posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
         posix_spawn_file_actions_adddup2(&actions, outputEnd, STDOUT_FILENO) == 0 &&
         posix_spawn_file_actions_adddup2(&actions, outputEnd, STDERR_FILENO) == 0 &&
         // libcurl makes its sockets without close-on-exec. A transfer of another thread must not
         // stay open in a tool, nor in a process that a maintainer script starts.
         posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) == 0;
}

bool Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv,
           int outputEnd, pid_t& child) {
  const std::vector<std::string> environment = ChildEnvironment(extraEnv);
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return false;
  // Without attributes a child inherits the service's signal settings, the ignored SIGPIPE too.
  const bool started = AddFileActions(actions, outputEnd) &&
                       posix_spawnp(&child, argv[0].c_str(), &actions, nullptr,
                                    Pointers(argv).data(), Pointers(environment).data()) == 0;
  posix_spawn_file_actions_destroy(&actions);
  return started;
}

// A failed read is treated as the end of the output. What is over the limit is read and dropped,
// since the child must not block on a full pipe.
std::string ReadOutput(int outputEnd) {
  std::string captured;
  const auto keep = [&captured](std::string_view block) {
    if (captured.size() < CaptureLimitBytes) captured += block;
  };
  (void)ReadToEnd(outputEnd, ReadBlockBytes, keep);
  return captured;
}

int32_t ReapChild(pid_t child) {
  // The status stays 0 when waitpid() fails with another error: this is treated as a success.
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
  writeEnd = Descriptor();  // otherwise the read below would never reach the end
  if (!started) {
    output = "cannot run " + argv[0];
    return -1;
  }
  std::string captured = ReadOutput(readEnd.Number());
  readEnd = Descriptor();
  const int32_t result = ReapChild(child);
  output = std::move(captured);
  return result;
}

std::string LastLine(std::string_view text) {
  const std::string content = TrimLineEnd(text);
  const size_t lineFeed = content.rfind('\n');
  return lineFeed == std::string::npos ? content : content.substr(lineFeed + 1);
}

void WaitForProcessExit(uint32_t pid, Milliseconds limit) {
  const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (process) {
    pollfd exit = {process.Number(), POLLIN, 0};
    poll(&exit, 1, static_cast<int>(limit));  // a signal ends the wait early
    return;
  }
  // The kernel is older than pidfd_open(), or the process has ended.
  const int64_t deadline = SteadyNowMs() + limit;
  while (kill(static_cast<pid_t>(pid), 0) == 0 && SteadyNowMs() < deadline) SleepMs(ExitPollMs);
}

}  // namespace Vantrell
