#include "service/check_requests.h"

#include <pthread.h>

#include <thread>

#include "base/log_line.h"
#include "identity/seat.h"
#include "settings/settings_file.h"
#include "update/update.h"

namespace Vantrell::ClientUpdateService {
namespace {

// The thread has its name when the reply is sent, so that the peer can find it.
void StartCheckPass() {
  std::thread thread([] { RunCheckPass(); });
  pthread_setname_np(thread.native_handle(), CheckThreadName);
  thread.detach();
}

}  // namespace

std::string AnswerCheck(const std::string&, int) {
  StartCheckPass();
  return "OK checking";
}

std::string AnswerSetRing(const std::string& line, int connection) {
  const std::string ring = line.substr(SetRingVerb.size());
  // This comes before the test of the peer: every peer learns that a ring is unknown.
  if (!IsRing(ring)) return "ERR unknown ring";
  if (!PeerIsSeatedUser(connection)) {
    return "ERR only a signed-in user at this machine may change the update channel";
  }
  if (!WriteSetting("Channel", ring)) return "ERR could not write the update channel";
  LogLine("[UpdateSvc] ring set to %s", ring.c_str());
  StartCheckPass();
  return "OK";
}

}  // namespace Vantrell::ClientUpdateService
