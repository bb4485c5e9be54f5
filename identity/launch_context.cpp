#include "identity/launch_context.h"

#include <cstdlib>

#include "base/file_content.h"
#include "base/lines.h"
#include "identity/client_process.h"

namespace Vantrell {
namespace {

// With the equals sign, so that a longer name with the same beginning is not kept.
constexpr std::string_view ClientEnvKeep[] = {
    "DISPLAY=",
    "WAYLAND_DISPLAY=",
    "XAUTHORITY=",
    "XDG_RUNTIME_DIR=",
    "XDG_SESSION_TYPE=",
    "XDG_CURRENT_DESKTOP=",
    "DBUS_SESSION_BUS_ADDRESS=",
    "LANG=",
    "LC_ALL=",
};

std::string ProcessFile(pid_t pid, const char* name) {
  return ReadWholeFile("/proc/" + std::to_string(pid) + "/" + name);
}

}  // namespace

std::vector<std::string> SplitNulSeparated(std::string_view text) {
  std::vector<std::string> elements;
  while (!text.empty()) {
    const size_t end = text.find('\0');
    elements.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return elements;
}

std::vector<std::string> KeepClientEnvironment(const std::vector<std::string>& environment) {
  std::vector<std::string> kept;
  for (const std::string& entry : environment) {
    for (const std::string_view prefix : ClientEnvKeep) {
      if (entry.starts_with(prefix)) kept.push_back(entry);
    }
  }
  return kept;
}

std::string FindUnit(const std::string& cgroups) {
  std::string unit;
  // The entry of cgroup v2 begins with "0::". If there are several, the last one is used.
  for (const std::string& line : SplitLines(cgroups)) {
    if (!line.starts_with("0::")) continue;
    const size_t slash = line.rfind('/');
    unit = slash == std::string::npos ? "" : line.substr(slash + 1);
  }
  return unit;
}

int32_t FindRealUid(const std::string& status) {
  constexpr std::string_view Key = "Uid:";
  for (const std::string& line : SplitLines(status)) {
    if (!line.starts_with(Key)) continue;
    // Four uids follow. The first is the real one.
    return static_cast<int32_t>(strtol(line.c_str() + Key.size(), nullptr, 10));
  }
  return -1;
}

int32_t ProcessUid(pid_t pid) { return FindRealUid(ProcessFile(pid, "status")); }

bool CaptureClientLaunchContext(pid_t pid, ClientLaunchContext& context) {
  if (!IsClientProcess(pid)) return false;
  context.pid = pid;
  const int32_t uid = ProcessUid(pid);
  context.uid = static_cast<uint32_t>(uid);
  if (uid == -1) return false;

  // From here on a read that fails leaves its field empty. The process may end in the meantime, and
  // what was read until then is still useful.
  context.args = SplitNulSeparated(ProcessFile(pid, "cmdline"));
  if (!context.args.empty()) context.args.erase(context.args.begin());
  context.env = KeepClientEnvironment(SplitNulSeparated(ProcessFile(pid, "environ")));
  context.unit = FindUnit(ProcessFile(pid, "cgroup"));
  return true;
}

}  // namespace Vantrell
