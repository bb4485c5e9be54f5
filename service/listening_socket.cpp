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
  static_assert(sizeof SocketPath <= sizeof address.sun_path);
  memcpy(address.sun_path, SocketPath, sizeof SocketPath);
  unlink(SocketPath);  // a crash may have left it
  // Any local process may connect. Each request tests what its peer may do.
  return bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         chmod(SocketPath, 0666) == 0 && listen(listener, ListenBacklog) == 0;
}

}  // namespace

int OpenListener() {
  // This makes the passed descriptors close-on-exec and does not change the environment. A passed
  // socket is not checked further.
  if (sd_listen_fds(0) == 1) return InheritedSocket;
  MakeDirs(RunDir, 0755);  // if this fails, so does bind()
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener || !BindAndListen(listener.Number())) return -1;
  return listener.Release();
}

void RemoveOwnSocket(int listener) {
  if (listener != InheritedSocket) unlink(SocketPath);
}

}  // namespace Vantrell::ClientUpdateService
