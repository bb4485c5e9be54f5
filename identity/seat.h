#pragma once

// Whether a peer sits at this machine: the kernel says who it is, logind whether that user has
// a live, local session on a seat. Nothing that the peer sends has any weight. No state; any
// thread; a no is an answer and is not logged. A yes holds for the moment of asking only.

#include <sys/types.h>

#include <string>

namespace Vantrell {

// For a connected Unix socket. Root always passes. A peer that belongs to a session is judged
// by this one alone; only one outside of all sessions is looked for on the seats. Everything
// that cannot be told is a no, so that without logind only root passes.
[[nodiscard]] bool PeerIsSeatedUser(int socket);

// Whether a session is active, not remote, on a seat, and this user's.
[[nodiscard]] bool SessionIsLocalFor(const std::string& session, uid_t uid);

}  // namespace Vantrell
