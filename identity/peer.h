#pragma once

// Who stands at the other end of a connected Unix socket, by the kernel's word.

#include <sys/socket.h>

namespace Vantrell {

// Zeroed where the kernel gives none, so that a pid of 0 means an unknown peer. Any thread.
ucred PeerOf(int socket);

}  // namespace Vantrell
