#pragma once

// The launch context of a client: what is needed to start a new client in the same way. It is read
// from /proc while the client runs, because it is gone when the process ends. Any thread may call
// these; they log nothing.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vantrell {

struct ClientLaunchContext {
  int32_t pid = 0;
  uint32_t uid = 0;               // real uid
  std::vector<std::string> args;  // the command line without its first element
  std::vector<std::string> env;   // the entries to keep, NAME=value, in the order of the process
  std::string unit;               // last component of the cgroup v2 path, empty if there is none
};

// Fills `context`, which must be a new record. False when the process is not the client or has
// ended; the record then has no meaning. What cannot be read of a client stays empty.
[[nodiscard]] bool CaptureClientLaunchContext(pid_t pid, ClientLaunchContext& context);

// The real uid of a process, or -1 when it cannot be read.
int32_t ProcessUid(pid_t pid);

// The elements of a list as /proc has it: a NUL ends each element. Empty elements are kept.
std::vector<std::string> SplitNulSeparated(std::string_view text);

// The entries of an environment that the new client gets: display, session and language.
std::vector<std::string> KeepClientEnvironment(const std::vector<std::string>& environment);

// The unit in the text of a /proc/PID/cgroup: the last component of the cgroup v2 path, or empty.
std::string FindUnit(const std::string& cgroups);

// The real uid in the text of a /proc/PID/status, or -1.
int32_t FindRealUid(const std::string& status);

}  // namespace Vantrell
