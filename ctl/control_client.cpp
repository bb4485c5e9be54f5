#include "ctl/control_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/descriptor.h"
#include "base/failure.h"
#include "base/read_input.h"
#include "base/steady_time.h"
#include "ctl/printable_text.h"
#include "service/listening_socket.h"
#include "service/socket_io.h"

namespace Vantrell::Control {
namespace {

constexpr int64_t ReplyLimitSeconds = 20;  // the service gives a request up after 15 s
constexpr size_t ReplyLimitBytes = 65536;

bool FailWithoutAnswer(std::string& error) {
  return FailWith("the update service does not answer within " + std::to_string(ReplyLimitSeconds) +
                      " s; see \"vantrell-harbor-updatectl log\", and restart it with \"systemctl "
                      "restart vantrell-harbor-updated.service\"",
                  error);
}

// A send limit also bounds connect(), which waits while the queue of the socket is full.
Descriptor Connect() {
  Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval limit = {ReplyLimitSeconds, 0};
  setsockopt(connection.Number(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, ClientUpdateService::SocketPath, sizeof address.sun_path - 1);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (connect(connection.Number(), generic, sizeof address) != 0) return Descriptor();
  return connection;
}

// Whether there is something to read before the deadline.
bool WaitForInput(int connection, int64_t deadlineMs) {
  for (;;) {
    const int64_t left = deadlineMs - SteadyNowMs();
    if (left <= 0) return false;
    pollfd input = {connection, POLLIN, 0};
    const int ready = poll(&input, 1, static_cast<int>(left));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

// The first line. Empty when the connection ends before the line does. False at the time limit.
bool ReadLine(int connection, std::string& line) {
  const int64_t deadlineMs = SteadyNowMs() + ReplyLimitSeconds * 1000;
  while (line.size() < ReplyLimitBytes) {
    char block[4096];
    if (!WaitForInput(connection, deadlineMs)) return false;
    const ssize_t count = ReadSome(connection, block, sizeof block);
    if (count <= 0) {
      line.clear();
      return true;
    }
    line.append(block, static_cast<size_t>(count));
    const size_t end = line.find('\n');
    if (end == std::string::npos) continue;
    line.resize(end);
    return true;
  }
  return true;
}

}  // namespace

bool AskService(const std::string& request, std::string& reply, std::string& error) {
  const Descriptor connection = Connect();
  if (!connection && errno == EAGAIN) return FailWithoutAnswer(error);
  if (!connection) {
    return FailWith(std::string("the update service is not there (") +
                        ClientUpdateService::SocketPath + ": " + strerror(errno) +
                        "); start it with \"systemctl start vantrell-harbor-updated.socket "
                        "vantrell-harbor-updated.service\"",
                    error);
  }
  ClientUpdateService::SendAll(connection.Number(), request + "\n");
  std::string line;
  if (!ReadLine(connection.Number(), line)) return FailWithoutAnswer(error);
  if (line.empty()) {
    return FailWith(
        "the update service closed the connection without an answer: it is stopping, or "
        "serves too many connections; try again in a moment",
        error);
  }
  reply = PrintableText(line);
  return true;
}

}  // namespace Vantrell::Control
