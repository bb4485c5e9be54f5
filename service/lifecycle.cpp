#include "service/lifecycle.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "base/build_stamp.h"
#include "base/deployment.h"
#include "base/descriptor.h"
#include "base/log_line.h"
#include "base/steady_time.h"
#include "service/background_loop.h"
#include "service/control_protocol.h"
#include "service/listening_socket.h"
#include "service/service_state.h"
#include "settings/maintenance_window.h"
#include "settings/settings_file.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr int ConnectionLimit = 32;  // live connection threads
constexpr Milliseconds StopPollMs = 200;

// A signal handler may not do more than this. The main thread wakes up and notifies the others.
void OnStopSignal(int) {
  const int savedError = errno;
  serviceState.stopRequested.exchange(true);
  SignalStopEvent();
  errno = savedError;
}

void InstallSignalHandlers() {
  struct sigaction stop = {};
  stop.sa_handler = OnStopSignal;
  sigemptyset(&stop.sa_mask);
  // Without SA_RESTART: blocking calls must return on a stop.
  stop.sa_flags = 0;
  sigaction(SIGTERM, &stop, nullptr);
  sigaction(SIGINT, &stop, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

void LogStart() {
  const std::string window = WindowText();
  const std::string ring = ReadChannel();
  LogLine("[UpdateSvc] %s %s listening on %s; ring %s, component %s, window %s", DaemonName,
          BuildStamp, SocketPath, ring.c_str(), ReleaseComponent, window.c_str());
}

// Logs nothing: a peer that is refused, or has already gone, is normal.
void AcceptConnection(int listener) {
  Descriptor connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) return;
  // Only this thread increments the counter, so check-then-increment cannot exceed the limit.
  if (serviceState.connections >= ConnectionLimit) return;
  ++serviceState.connections;
  std::thread(HandleConnection, connection.Release()).detach();
}

// Returns when the service must stop, and when poll() fails with anything but EINTR.
void AcceptUntilStop(int listener) {
  pollfd entries[] = {{listener, POLLIN, 0}, {serviceState.stopEventFd, POLLIN, 0}};
  while (!serviceState.stopRequested) {
    if (poll(entries, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (entries[1].revents != 0) return;
    if ((entries[0].revents & POLLIN) != 0) AcceptConnection(listener);
  }
}

int Stop(int listener) {
  // Set it here too: the accept loop can also end because poll() failed.
  serviceState.stopRequested.exchange(true);
  SignalStopEvent();
  serviceState.wake.notify_all();  // without wakeMutex, see StopForNewBuild
  if (serviceState.backgroundThread.joinable()) serviceState.backgroundThread.join();
  while (serviceState.applyBusy) SleepMs(StopPollMs);  // an apply always runs to its end

  RemoveOwnSocket(listener);
  LogLine("[UpdateSvc] stopping%s", serviceState.restartForNewBuild ? " for the new build" : "");
  // At the end: this notification means that all work has ended.
  sd_notify(0, "STOPPING=1");
  // Read it again: an apply ends its claim before it asks for the new build.
  return serviceState.restartForNewBuild ? StoppedForNewBuild : Stopped;
}

}  // namespace

int RunService() {
  if (geteuid() != 0) {
    LogLine("[UpdateSvc] %s must run as root", DaemonName);
    return CouldNotStart;
  }
  umask(022);
  // Not tested: without an eventfd a stop is seen through the flag, after an interrupted poll().
  serviceState.stopEventFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  InstallSignalHandlers();

  const int listener = OpenListener();
  if (listener < 0) {
    LogLine("[UpdateSvc] cannot listen on %s (%s)", SocketPath, strerror(errno));
    return CouldNotStart;
  }
  LogStart();
  sd_notify(0, "READY=1");
  serviceState.backgroundThread = std::thread(BackgroundUpdateLoop);

  AcceptUntilStop(listener);
  return Stop(listener);
}

}  // namespace Vantrell::ClientUpdateService
