#include "identity/peer.h"

namespace Vantrell {

ucred PeerOf(int socket) {
  ucred peer = {};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return {};
  return peer;
}

}  // namespace Vantrell
