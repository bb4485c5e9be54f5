#include <gtest/gtest.h>
#include <sys/socket.h>

#include <tuple>

#include "base/descriptor.h"
#include "service/background_loop.h"
#include "service/control_protocol.h"
#include "service/service_state.h"

namespace Vantrell::ClientUpdateService {

TEST(CheckRhythm, BacksOffToACapAndBeginsAnewAfterAnAnswer) {
  CheckRhythm rhythm;
  for (const uint32_t seconds : {60u, 60u, 120u, 240u, 480u, 960u, 1800u, 1800u}) {
    EXPECT_EQ(rhythm.waitMs, seconds * 1000);
    rhythm = RhythmAfterFailure(rhythm);
  }
  EXPECT_EQ(RhythmAfterAnswer("").waitMs, 21600000u + 736261u);
  EXPECT_EQ(RhythmAfterFailure(RhythmAfterAnswer("")).waitMs, 60000u);
  EXPECT_EQ(StableJitter("foobar", 0xffffffff), 0xbf9cf968u);
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
