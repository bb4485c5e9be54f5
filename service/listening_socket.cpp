#include "service/listening_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cstring>

#include "base/descriptor.h"
#include "base/directories.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr char RunDir[] = "/run/vantrell";
constexpr int InheritedSocket = SD_LISTEN_FDS_START;  // 3
constexpr int ListenBacklog = 16;

bool BindAndListen(int listener) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  (void)strncpy(address.sun_path, SocketPath, sizeof address.sun_path - 1);
  (void)unlink(SocketPath);  // what a crash left behind
  // Any local process may connect; each request says who may do what.
  return bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         chmod(SocketPath, 0666) == 0 && listen(listener, ListenBacklog) == 0;
}

}  // namespace

int OpenListener() {
  // Makes what was passed close-on-exec and leaves the environment alone. Beyond that an
  // inherited socket is taken as it is.
  if (sd_listen_fds(0) == 1) return InheritedSocket;
  (void)MakeDirs(RunDir, 0755);  // a failure shows at the bind
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener || !BindAndListen(listener.Number())) return -1;
  return listener.Release();
}

void RemoveOwnSocket(int listener) {
  if (listener != InheritedSocket) (void)unlink(SocketPath);
}

}  // namespace Vantrell::ClientUpdateService
