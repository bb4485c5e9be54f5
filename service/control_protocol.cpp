#include "service/control_protocol.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "base/descriptor.h"
#include "base/lines.h"
#include "service/apply_request.h"
#include "service/check_requests.h"
#include "service/service_state.h"
#include "service/session_hold.h"
#include "settings/maintenance_window.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr size_t RequestLimitBytes = 1024;
constexpr time_t SocketLimitSeconds = 15;  // for each read and send, not for the request

void LimitSocketWaits(int connection) {
  const timeval limit = {SocketLimitSeconds, 0};
  (void)setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  (void)setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

// True when there is something to serve. A line that was cut off by the limit, by the end of
// the input or by a silent peer is served as it stands; without a single byte there is none.
bool ReadRequest(int connection, std::string& line) {
  while (line.size() < RequestLimitBytes) {
    char byte = 0;
    const ssize_t got = read(connection, &byte, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return !line.empty();
    if (byte == '\n') return true;
    line += byte;
  }
  return true;
}

std::string AnswerStatus(const std::string&, int) {
  const MutexLock lock(serviceState.stateMutex);
  // The second word is always a version word: "-" where there is none.
  if (serviceState.stagedReady) {
    return "READY " + serviceState.staged.version + " " + serviceState.lastStatus;
  }
  return "IDLE - " + serviceState.lastStatus;
}

std::string AnswerWindow(const std::string&, int) {
  const std::string text = WindowText();
  return (IsWindowOpenNow() ? "OPEN " : "SHUT ") + text;
}

struct Verb {
  std::string_view prefix;
  std::string (*answer)(const std::string& line, int connection);
};

// The first row that begins the line serves it; what follows a verb is ignored. Clients rely
// on that, so it is not to be tightened to whole lines.
constexpr Verb Verbs[] = {
    {"STATUS", AnswerStatus}, {"CHECK", AnswerCheck}, {SetRingVerb, AnswerSetRing},
    {"WINDOW", AnswerWindow}, {"APPLY", AnswerApply},
};

void ServeConnection(int connection) {
  LimitSocketWaits(connection);
  std::string line;
  if (!ReadRequest(connection, line)) return;
  line = TrimLineEnd(line);
  if (line == "HOLD") {
    HoldSession(connection);
    return;
  }
  SendAll(connection, HandleRequest(line, connection) + "\n");
}

}  // namespace

std::string HandleRequest(const std::string& line, int connection) {
  for (const Verb& verb : Verbs) {
    if (line.starts_with(verb.prefix)) return verb.answer(line, connection);
  }
  return "ERR unknown request";
}

void SendAll(int connection, const std::string& text) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t sent = send(connection, rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return;
    rest.remove_prefix(static_cast<size_t>(sent));
  }
}

void HandleConnection(int connection) {
  {
    const Descriptor owner(connection);
    ServeConnection(owner.Number());
  }
  // Last of all: the slot is free when the descriptor is.
  --serviceState.connections;
}

}  // namespace Vantrell::ClientUpdateService
