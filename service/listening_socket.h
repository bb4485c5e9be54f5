#pragma once

// The listening socket of the service: the one that the service manager passes, or its own. Only
// the main thread calls these functions.

namespace Vantrell::ClientUpdateService {

constexpr char SocketPath[] = "/run/vantrell/update.sock";

// The listening descriptor. If the service manager passed exactly one descriptor, it is that one;
// otherwise a new socket at SocketPath, to which every local user may connect. -1 on failure, with
// the reason in errno.
int OpenListener();

// Removes the path of the service's own socket. Leaves the path of a passed socket, which belongs
// to the service manager.
void RemoveOwnSocket(int listener);

}  // namespace Vantrell::ClientUpdateService
