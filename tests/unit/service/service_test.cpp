#include <gtest/gtest.h>
#include <sys/socket.h>

#include <tuple>

#include "base/descriptor.h"
#include "service/background_loop.h"
#include "service/control_protocol.h"
#include "service/service_state.h"
#include "service/socket_io.h"

namespace Vantrell::ClientUpdateService {

struct LoopTurn {
  Milliseconds wait;  // expected
  bool reached;
  bool accepted;
};

const LoopTurn LoopTurns[] = {
    {60000, false, false},    {60000, false, false},  {120000, false, false},
    {240000, false, false},   {480000, false, false}, {960000, false, false},
    {1800000, false, false},  {1800000, true, false}, {23335720, true, false},
    {23335720, false, false}, {60000, false, false},  {120000, true, true},
};

TEST(UpdateLoop, TriesAfterEachPassAndWaitsByItsOutcome) {
  size_t turn = 0;
  std::string steps;
  RunUpdateLoop({
      [&](Milliseconds wait) {
        if (turn == std::size(LoopTurns)) return false;
        EXPECT_EQ(wait, LoopTurns[turn].wait) << turn;
        steps += "wait ";
        return true;
      },
      [&] {
        steps += "pass ";
        return LoopTurns[turn].reached;
      },
      [&] {
        steps += "apply\n";
        return LoopTurns[turn++].accepted;
      },
      [] { return "foobar"; },
  });
  std::string expected;
  for (size_t count = 0; count < std::size(LoopTurns); ++count) expected += "wait pass apply\n";
  EXPECT_EQ(steps, expected);
  RunUpdateLoop({[](Milliseconds) { return false; }, nullptr, nullptr, nullptr});
}

TEST(StableJitter, IsTheFnv1aHashModuloTheSpan) {
  EXPECT_EQ(StableJitter("", CheckJitterSpanMs), 736261u);
  EXPECT_EQ(StableJitter("foobar", 0xffffffff), 0xbf9cf968u);
  EXPECT_EQ(StableJitter("\xff", 0xffffffff), 0x7a0b824eu);
  EXPECT_EQ(StableJitter("foobar", 0), 0u);
}

static void Publish(bool ready, const char* status) {
  const MutexLock lock(serviceState.stateMutex);
  serviceState.stagedReady = ready;
  serviceState.staged.version = "2.4.0";
  serviceState.lastStatus = status;
}

TEST(ControlProtocol, ServesVerbsByTheirPrefixAndCase) {
  for (const char* line : {"SETRING ", "SETRING DEV", "SETRING dev ", "SETRING  dev"}) {
    EXPECT_EQ(HandleRequest(line, -1), "ERR unknown ring") << line;
  }
  for (const char* line : {"SETRING", "HOLD", "HOLD x", "status", " STATUS", "STATU", ""}) {
    EXPECT_EQ(HandleRequest(line, -1), "ERR unknown request") << line;
  }
  Publish(true, "refused: HTTP 404");
  EXPECT_EQ(HandleRequest("STATUSES of all", -1), "READY 2.4.0 refused: HTTP 404");
  serviceState.sessionHolds = 1;
  EXPECT_EQ(HandleRequest("APPLY now", -1), "ERR a session is live");
  Publish(false, "");
  EXPECT_EQ(HandleRequest("APPLY", -1), "ERR nothing is staged");
  serviceState.sessionHolds = 0;
}

// What the peer sends, the reply, and whether all that was sent was read.
const std::tuple<std::string, std::string, bool> Exchanges[] = {
    {"STATUS\r\n", "IDLE - \n", true},
    {"\n", "ERR unknown request\n", true},
    {"HOLD\r\r\nx", "ERR only the Vantrell Harbor client may hold a session\n", false},
    {"", "", true},
    {"STATUS" + std::string(1018, 'x'), "IDLE - \n", true},
    {"STATUS" + std::string(1019, 'x'), "IDLE - \n", false},
};

TEST(ControlProtocol, AnswersOneLineAndCloses) {
  for (const auto& [request, expected, allRead] : Exchanges) {
    int ends[2] = {};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor peer(ends[0]);
    SendAll(peer.Number(), request);
    (void)shutdown(peer.Number(), SHUT_WR);
    serviceState.connections = 3;
    HandleConnection(ends[1]);
    EXPECT_EQ(serviceState.connections, 2);
    std::string reply;
    ssize_t got = 1;
    for (char byte = 0; (got = recv(peer.Number(), &byte, 1, 0)) == 1;) reply += byte;
    EXPECT_EQ(reply, expected) << request;
    EXPECT_EQ(got == 0, allRead) << request;  // the kernel reports what was left as a reset
  }
}

}  // namespace Vantrell::ClientUpdateService
