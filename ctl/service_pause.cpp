#include "ctl/service_pause.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>

#include <utility>

#include "apply/process_runner.h"
#include "base/steady_time.h"
#include "ctl/unit_states.h"

namespace Vantrell::Control {
namespace {

constexpr char RepairLock[] = "/run/vantrell-harbor-repair.lock";
constexpr int LockTries = 60;
constexpr Milliseconds LockPauseMs = 1000;

// One call for both units: while only one is stopped, the other would start it again.
bool RunSystemctl(const char* action) {
  std::string output;
  return RunProcess({"systemctl", action, SocketUnit, ServiceUnit}, {}, output) == 0;
}

bool TakeLock(int file) {
  for (int count = 1; flock(file, LOCK_EX | LOCK_NB) != 0; ++count) {
    if (count == LockTries) return false;
    SleepMs(LockPauseMs);
  }
  return true;
}

}  // namespace

ServicePause::ServicePause() {
  for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGQUIT, SIGTERM}) {
    signal(number, SIG_IGN);
  }
  if (!RunSystemctl("stop")) return;
  // As the repair makes it: a user who could open it, even for reading, could hold it.
  repairLock_ = Descriptor(open(RepairLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  isComplete_ = repairLock_ && TakeLock(repairLock_.Number());
}

ServicePause::~ServicePause() { (void)Resume(); }

bool ServicePause::Resume() {
  // The start of the service repairs, and waits for this lock.
  repairLock_ = Descriptor();
  if (std::exchange(isResumed_, true)) return true;
  RunSystemctl("reset-failed");  // a few starts within seconds would be refused
  return RunSystemctl("start");
}

}  // namespace Vantrell::Control
