#pragma once

// Who the peer of a connection is, by the kernel, and whether this user is at the machine: logind
// must know an active, local session of the user on a seat. Nothing that the peer sends is used.
// Any thread may call these; a negative answer is not logged. The answers are true for the moment
// of the call only.

#include <sys/socket.h>
#include <sys/types.h>

#include <string>

namespace Vantrell {

// Pid, uid and gid of the process that connected a Unix socket. All zero if the kernel gives none,
// so a pid of 0 means an unknown peer.
ucred PeerCredentials(int socket);

// Whether the peer of a connected Unix socket is at the machine. True for root. For a peer that
// belongs to a session this session alone decides. For a peer without a session, an active session
// of the same user on any seat is enough. An error is a negative answer, so without logind only
// root is accepted.
[[nodiscard]] bool PeerIsSeatedUser(int socket);

// Whether a session is active, is not remote, has a seat, and belongs to the user.
[[nodiscard]] bool SessionIsLocalFor(const std::string& session, uid_t uid);

}  // namespace Vantrell
