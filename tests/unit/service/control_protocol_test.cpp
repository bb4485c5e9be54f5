#include "service/control_protocol.h"

#include <sys/socket.h>
#include <sys/time.h>

#include "base/descriptor.h"
#include "service/service_state.h"
#include "service/socket_io.h"
#include "tests/unit/text_cases.h"

namespace Vantrell::ClientUpdateService {

TEST(ControlProtocol, RefusesUnknownRingsAndRequests) {
  for (const char* line : {"SETRING ", "SETRING DEV", "SETRING dev ", "SETRING  dev"}) {
    EXPECT_EQ(HandleRequest(line, -1), "ERR unknown ring") << line;
  }
  for (const char* line : {"SETRING", "HOLD", "HOLD x", "status", " STATUS", "STATU", ""}) {
    EXPECT_EQ(HandleRequest(line, -1), "ERR unknown request") << line;
  }
}

TEST(ControlProtocol, AnswersOneLineWithinItsLimitsAndCloses) {
  const std::vector<TextCase> cases = {
      {"nothing", "", ""},
      {"an empty line", "\n", "ERR unknown request\n"},
      {"bytes after the line", "X\r\r\nx", "ERR unknown request\n, bytes unread"},
      {"as long as a request may be", "STATUS" + std::string(1018, 'x'), "IDLE - \n"},
      {"a longer request", "STATUS" + std::string(1019, 'x'), "IDLE - \n, bytes unread"},
  };
  ExpectEach(cases, [](const std::string& request) {
    int ends[2] = {};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor peer(ends[0]);
    Descriptor copy(dup(ends[1]));  // keeps the options readable after the close
    SendAll(peer.Number(), request);
    shutdown(peer.Number(), SHUT_WR);
    serviceState.connections = 3;
    HandleConnection(ends[1]);
    EXPECT_EQ(serviceState.connections, 2);
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
      timeval limit = {};
      socklen_t size = sizeof limit;
      EXPECT_EQ(getsockopt(copy.Number(), SOL_SOCKET, option, &limit, &size), 0);
      EXPECT_EQ(limit.tv_sec, 15) << option;
    }
    copy = Descriptor();
    std::string reply;
    ssize_t got = 1;
    for (char byte = 0; (got = recv(peer.Number(), &byte, 1, 0)) == 1;) reply += byte;
    return got == 0 ? reply : reply + ", bytes unread";  // the kernel reports them as a reset
  });
}

}  // namespace Vantrell::ClientUpdateService
