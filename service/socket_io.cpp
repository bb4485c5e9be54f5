#include "service/socket_io.h"

#include <sys/socket.h>

#include <cerrno>
#include <string_view>

namespace Vantrell::ClientUpdateService {

void SendAll(int connection, const std::string& text) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t sent = send(connection, rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return;
    rest.remove_prefix(static_cast<size_t>(sent));
  }
}

}  // namespace Vantrell::ClientUpdateService
