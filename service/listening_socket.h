#pragma once

// The socket at which local clients reach the service: the service manager's, or its own.
// Main thread only.

namespace Vantrell::ClientUpdateService {

constexpr char SocketPath[] = "/run/vantrell/update.sock";

// The listening descriptor: the one that the service manager passed if it passed exactly one,
// else one of our own at SocketPath, open to every local user. -1, and the reason in errno,
// when there is none to be had.
int OpenListener();

// Removes the path of our own socket. That of an inherited one is the service manager's.
void RemoveOwnSocket(int listener);

}  // namespace Vantrell::ClientUpdateService
