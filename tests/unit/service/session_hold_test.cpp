#include "service/session_hold.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <future>

#include "base/descriptor.h"
#include "service/service_state.h"

namespace Vantrell::ClientUpdateService {

TEST(SessionHold, HasNoTimeLimitAndEndsWithTheService) {
  int ends[2] = {};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const Descriptor peer(ends[0]);
  const Descriptor connection(ends[1]);
  timeval limit = {15, 0};
  socklen_t size = sizeof limit;
  ASSERT_EQ(setsockopt(connection.Number(), SOL_SOCKET, SO_RCVTIMEO, &limit, size), 0);
  const Descriptor stopEvent(eventfd(0, EFD_CLOEXEC));
  serviceState.stopEventFd = stopEvent.Number();
  const auto session = std::async(std::launch::async, KeepSession, connection.Number());
  SignalStopEvent();
  EXPECT_EQ(session.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  shutdown(peer.Number(), SHUT_RDWR);  // ends the session after a failure
  session.wait();
  EXPECT_EQ(serviceState.sessionHolds, 0);
  ASSERT_EQ(getsockopt(connection.Number(), SOL_SOCKET, SO_RCVTIMEO, &limit, &size), 0);
  EXPECT_EQ(limit.tv_sec, 0);
  serviceState.stopEventFd = -1;
}

}  // namespace Vantrell::ClientUpdateService
