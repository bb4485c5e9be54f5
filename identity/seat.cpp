#include "identity/seat.h"

#include <systemd/sd-login.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace Vantrell {
namespace {

struct MemoryFree {
  void operator()(void* memory) const { free(memory); }
};
using OwnedText = std::unique_ptr<char, MemoryFree>;

// Null when the seat has no active session.
OwnedText FindActiveSession(const char* seat) {
  char* session = nullptr;
  if (sd_seat_get_active(seat, &session, nullptr) < 0) return nullptr;
  return OwnedText(session);
}

bool IsOnSomeSeat(const char* session) {
  char* seat = nullptr;
  const bool known = sd_session_get_seat(session, &seat) >= 0;
  const OwnedText owned(seat);
  return known && seat != nullptr;
}

bool HoldsActiveSession(uid_t uid) {
  char** seats = nullptr;
  if (sd_get_seats(&seats) <= 0 || seats == nullptr) return false;
  const std::unique_ptr<char*, MemoryFree> list(seats);
  bool found = false;
  // Keep iterating after a match: every string in the list must be freed.
  for (char** next = seats; *next != nullptr; ++next) {
    const OwnedText seat(*next);
    if (found) continue;
    const OwnedText session = FindActiveSession(seat.get());
    if (session) found = SessionIsLocalFor(session.get(), uid);
  }
  return found;
}

}  // namespace

ucred PeerCredentials(int socket) {
  ucred peer = {};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return {};
  return peer;
}

bool SessionIsLocalFor(const std::string& session, uid_t uid) {
  if (sd_session_is_active(session.c_str()) <= 0) return false;
  if (sd_session_is_remote(session.c_str()) != 0) return false;  // an error is treated as remote
  if (!IsOnSomeSeat(session.c_str())) return false;
  uid_t owner = 0;
  return sd_session_get_uid(session.c_str(), &owner) >= 0 && owner == uid;
}

bool PeerIsSeatedUser(int socket) {
  const ucred peer = PeerCredentials(socket);
  if (peer.pid <= 0) return false;
  if (peer.uid == 0) return true;
  char* session = nullptr;
  const int found = sd_pid_get_session(peer.pid, &session);
  const OwnedText owned(session);
  // This answer is final: a remote login is refused even if the same user is also at a seat.
  if (found >= 0) return SessionIsLocalFor(session, peer.uid);
  // Only this error says that the peer has no session. A peer that has ended, for example, may have
  // been in a remote one.
  return found == -ENODATA && HoldsActiveSession(peer.uid);
}

}  // namespace Vantrell
