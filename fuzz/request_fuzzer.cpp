// Sends arbitrary requests to the service, as a user without any right. Each is answered by one
// line, and none changes the state of the service.

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/descriptor.h"
#include "base/read_input.h"
#include "base/write_output.h"
#include "fuzz/require.h"
#include "service/control_protocol.h"
#include "service/service_state.h"

namespace Vantrell::ClientUpdateService {
namespace {

// "CHECK" starts a pass, and "APPLY" a thread that would answer the next input.
bool StartsWork(std::string_view request) {
  return request.starts_with("CHECK") || request.starts_with("APPLY");
}

std::string Exchange(std::string_view request) {
  int ends[2];
  Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "no sockets");
  const Descriptor peer(ends[0]);
  Require(WriteAll(peer.Number(), request), "a request that cannot be sent");
  shutdown(peer.Number(), SHUT_WR);
  ++serviceState.connections;
  HandleConnection(ends[1]);
  std::string reply;
  const auto take = [&reply](std::string_view block) { reply += block; };
  // Bytes that nobody has read reset the connection, after the answer.
  const bool isRead = ReadToEnd(peer.Number(), 4096, take);
  Require(isRead || errno == ECONNRESET, "an answer that cannot be read");
  return reply;
}

}  // namespace
}  // namespace Vantrell::ClientUpdateService

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  constexpr uid_t Nobody = 65534;
  Vantrell::Require(geteuid() != 0 || setresuid(Nobody, Nobody, Nobody) == 0, "still root");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace Vantrell;  // NOLINT(google-build-using-namespace): a function of C
  const std::string request(data, data + size);
  if (ClientUpdateService::StartsWork(request)) return 0;
  const std::string reply = ClientUpdateService::Exchange(request);
  const bool isAsked = !request.empty() && request[0] != '\n';
  Require(isAsked || reply.empty() || reply == "ERR unknown request\n", "an answer to nothing");
  Require(request.empty() || reply.find('\n') + 1 == reply.size(), "an answer of several lines");
  Require(ClientUpdateService::serviceState.connections == 0, "a connection that stays");
  Require(!ClientUpdateService::serviceState.applyBusy, "an install");
  return 0;
}
