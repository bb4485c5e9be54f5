#pragma once

// The snapshot of a running client that is needed to start a new one the way the old one was
// started. Read from /proc while the client lives; all of it is gone with the process. No
// state; any thread; logs nothing.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vantrell {

struct ClientLaunchContext {
  int32_t pid = 0;
  uint32_t uid = 0;               // real uid
  std::vector<std::string> args;  // command line without the program's own name
  std::vector<std::string> env;   // the kept entries, NAME=value, in the process's order
  std::string unit;               // last component of its cgroup v2 path, empty if there is none
};

// `context` comes in fresh. False when the process is not the client or has gone; the record
// is then to be thrown away. What cannot be read of a client stays empty.
[[nodiscard]] bool CaptureClientLaunchContext(pid_t pid, ClientLaunchContext& context);

// Real uid of a process, -1 when it cannot be told.
int32_t ProcessUid(pid_t pid);

// The elements of a text as /proc has them: each ended by a NUL. An empty one in the middle
// counts, the nothing behind the last NUL does not.
std::vector<std::string> SplitNulSeparated(std::string_view text);

// The entries of an environment that a new client may have: display, session and language.
std::vector<std::string> KeptEnvironment(const std::vector<std::string>& environment);

// The unit in a text of the form of /proc/PID/cgroup.
std::string UnitInCgroups(const std::string& cgroups);

}  // namespace Vantrell
