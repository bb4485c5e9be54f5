#include "service/control_protocol.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <string_view>

#include "base/descriptor.h"
#include "base/lines.h"
#include "base/read_input.h"
#include "service/apply_request.h"
#include "service/check_requests.h"
#include "service/service_state.h"
#include "service/session_hold.h"
#include "service/socket_io.h"
#include "settings/maintenance_window.h"

namespace Vantrell::ClientUpdateService {
namespace {

constexpr size_t RequestLimitBytes = 1024;
constexpr time_t SocketLimitSeconds = 15;  // for each read and each send

void LimitSocketWaits(int connection) {
  const timeval limit = {SocketLimitSeconds, 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

// True when there is a request. A line that ends at the limit, at the end of the input or by the
// time-out is served like a complete one. If that comes before the first byte, there is no request.
bool ReadRequest(int connection, std::string& line) {
  while (line.size() < RequestLimitBytes) {
    char byte = 0;
    if (ReadSome(connection, &byte, 1) <= 0) return !line.empty();
    if (byte == '\n') return true;
    line += byte;
  }
  return true;
}

std::string AnswerStatus(const std::string&, int) {
  const MutexLock lock(serviceState.stateMutex);
  // The second word is always a version, or "-" if there is none.
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

// The first row whose prefix begins the line serves the request. What follows the prefix is
// ignored. Clients depend on this, so whole lines must not be required.
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

void HandleConnection(int connection) {
  {
    const Descriptor owner(connection);
    ServeConnection(owner.Number());
  }
  // After the descriptor is closed: a free slot must mean a free descriptor.
  --serviceState.connections;
}

}  // namespace Vantrell::ClientUpdateService
