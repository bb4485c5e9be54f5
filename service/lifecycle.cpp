#include "service/lifecycle.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "base/build_stamp.h"
#include "base/deployment.h"
#include "base/descriptor.h"
#include "base/directories.h"
#include "base/log_line.h"
#include "base/steady_time.h"
#include "service/background_loop.h"
#include "service/control_protocol.h"
#include "service/service_state.h"
#include "settings/maintenance_window.h"
#include "settings/settings_file.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr char RunDir[] = "/run/vantrell";
constexpr int InheritedSocket = SD_LISTEN_FDS_START;  // 3
constexpr int ListenBacklog = 16;
constexpr int ConnectionLimit = 32;  // live connection threads
constexpr int64_t StopPollMs = 200;

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

bool BindAndListen(int listener) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  (void)strncpy(address.sun_path, SocketPath, sizeof address.sun_path - 1);
  (void)unlink(SocketPath);  // what a crash left behind
  // Any local process may connect; each request says who may do what.
  return bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         chmod(SocketPath, 0666) == 0 && listen(listener, ListenBacklog) == 0;
}

// -1, and the reason in errno, when there is none to be had.
int OpenListener() {
  // The environment is left alone, and an inherited socket is neither examined nor changed.
  if (sd_listen_fds(0) == 1) return InheritedSocket;
  (void)MakeDirs(RunDir, 0755);  // a failure shows at the bind
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener || !BindAndListen(listener.Number())) return -1;
  return listener.Release();
}

void LogStart() {
  const std::string window = WindowText();
  const std::string ring = ReadChannel();
  LogLine("[UpdateSvc] %s %s listening on %s; ring %s, component %s, window %s", DaemonName,
          BuildStamp, SocketPath, ring.c_str(), ReleaseComponent, window.c_str());
}

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

  // The path of an inherited socket is the service manager's.
  if (listener != InheritedSocket) (void)unlink(SocketPath);
  const bool forNewBuild = serviceState.restartForNewBuild;
  LogLine("[UpdateSvc] stopping%s", forNewBuild ? " for the new build" : "");
  // The last thing of all: stopping is reported when the work has ended.
  (void)sd_notify(0, "STOPPING=1");
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
