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
constexpr int64_t StopPollMs = 200;

// No more than this is safe in a handler: the main thread wakes and does the notifying.
void OnStopSignal(int) {
  const int savedError = errno;
  serviceState.stopRequested.exchange(true);
  SignalStopEvent();
  errno = savedError;
}

void InstallSignalHandlers() {
  struct sigaction stop = {};
  stop.sa_handler = OnStopSignal;
  (void)sigemptyset(&stop.sa_mask);
  // No SA_RESTART: blocking calls must return on a stop.
  stop.sa_flags = 0;
  (void)sigaction(SIGTERM, &stop, nullptr);
  (void)sigaction(SIGINT, &stop, nullptr);
  (void)signal(SIGPIPE, SIG_IGN);
}

void LogStart() {
  const std::string window = WindowText();
  const std::string ring = ReadChannel();
  LogLine("[UpdateSvc] %s %s listening on %s; ring %s, component %s, window %s", DaemonName,
          BuildStamp, SocketPath, ring.c_str(), ReleaseComponent, window.c_str());
}

// Silent throughout: a peer that is refused, or gone again already, is no event.
void AcceptConnection(int listener) {
  Descriptor connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) return;
  // Only this thread raises the count, so that it cannot be passed.
  if (serviceState.connections >= ConnectionLimit) return;
  ++serviceState.connections;
  std::thread(HandleConnection, connection.Release()).detach();
}

// Ends when the service is to stop, or when poll fails in a way that cannot be helped.
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
  // Also when a signal did so already: the loop may have ended for another reason.
  serviceState.stopRequested.exchange(true);
  SignalStopEvent();
  serviceState.wake.notify_all();  // without wakeMutex, see StopForNewBuild
  if (serviceState.backgroundThread.joinable()) serviceState.backgroundThread.join();
  while (serviceState.applyBusy) SleepMs(StopPollMs);  // an apply is never cut short

  RemoveOwnSocket(listener);
  LogLine("[UpdateSvc] stopping%s", serviceState.restartForNewBuild ? " for the new build" : "");
  // The last thing of all: stopping is reported when the work has ended.
  (void)sd_notify(0, "STOPPING=1");
  // Read again: an apply gives its claim back before it asks for the new build.
  return serviceState.restartForNewBuild ? StoppedForNewBuild : Stopped;
}

}  // namespace

int RunService() {
  if (geteuid() != 0) {
    LogLine("[UpdateSvc] %s must run as root", DaemonName);
    return CouldNotStart;
  }
  (void)umask(022);
  // Untested: without it a stop is still seen through the flag and an interrupted poll.
  serviceState.stopEventFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  InstallSignalHandlers();

  const int listener = OpenListener();
  if (listener < 0) {
    LogLine("[UpdateSvc] cannot listen on %s (%s)", SocketPath, strerror(errno));
    return CouldNotStart;
  }
  LogStart();
  (void)sd_notify(0, "READY=1");
  serviceState.backgroundThread = std::thread(BackgroundUpdateLoop);

  AcceptUntilStop(listener);
  return Stop(listener);
}

}  // namespace Vantrell::ClientUpdateService
