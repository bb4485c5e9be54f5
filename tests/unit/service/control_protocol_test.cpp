#include "service/control_protocol.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "base/descriptor.h"
#include "service/service_state.h"
#include "service/socket_io.h"

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
  const struct {
    std::string behaviour, request, reply;
    bool allRead;
  } cases[] = {
      {"a line", "STATUS\r\n", "IDLE - \n", true},
      {"an empty line", "\n", "ERR unknown request\n", true},
      {"bytes after the line", "X\r\r\nx", "ERR unknown request\n", false},
      {"nothing", "", "", true},
      {"as long as a request may be", "STATUS" + std::string(1018, 'x'), "IDLE - \n", true},
      {"a longer request", "STATUS" + std::string(1019, 'x'), "IDLE - \n", false},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(given.behaviour);
    int ends[2] = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor peer(ends[0]);
    Descriptor copy(dup(ends[1]));  // keeps the options readable after the close
    SendAll(peer.Number(), given.request);
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
    EXPECT_EQ(reply, given.reply);
    EXPECT_EQ(got == 0, given.allRead);  // the kernel reports unread bytes as a reset
  }
}

}  // namespace Vantrell::ClientUpdateService
