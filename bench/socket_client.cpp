// Sends COUNT equal requests, each over a connection of its own. Prints the number of replies per
// second, and the times of a request that 50 %, 99 % and 99.9 % do not exceed, in microseconds.
//
//   socket_client SOCKET REQUEST REPLY COUNT THREADS
//
// Every reply must be REPLY. A request whose connection is closed without a reply is sent again,
// which is part of its time: the service serves a limited number of connections at once.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "base/descriptor.h"
#include "bench/stopwatch.h"

namespace Vantrell {
namespace {

struct Load {
  std::string socketPath;
  std::string request;
  std::string reply;
  std::atomic<int> left{0};
  std::vector<double> microseconds;  // of each request; its index is what was left then
};

[[noreturn]] void Fail(const char* what) {
  perror(what);
  exit(1);
}

// Returns all that the server sent; empty if it accepted the connection and did not serve it.
std::string Ask(const Load& load) {
  const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  (void)strncpy(address.sun_path, load.socketPath.c_str(), sizeof address.sun_path - 1);
  if (connect(connection.Number(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    Fail("socket_client: connect");
  }
  (void)send(connection.Number(), load.request.data(), load.request.size(), MSG_NOSIGNAL);
  char reply[512];
  size_t length = 0;
  while (length < sizeof reply) {
    const ssize_t got = read(connection.Number(), reply + length, sizeof reply - length);
    if (got <= 0) break;
    length += static_cast<size_t>(got);
  }
  return {reply, length};
}

void AskUntilDone(Load* load) {
  for (int index = --load->left; index >= 0; index = --load->left) {
    std::string reply;
    load->microseconds[static_cast<size_t>(index)] = Microseconds([&] {
      while (reply.empty()) reply = Ask(*load);
    });
    if (reply == load->reply) continue;
    fprintf(stderr, "socket_client: unexpected reply: %s", reply.c_str());
    exit(1);
  }
}

}  // namespace
}  // namespace Vantrell

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  Vantrell::Load load;
  load.socketPath = argv[1];
  load.request = std::string(argv[2]) + "\n";
  load.reply = std::string(argv[3]) + "\n";
  const int count = atoi(argv[4]);
  if (count <= 0) return 2;
  load.left = count;
  load.microseconds.resize(static_cast<size_t>(count));

  const double taken = Vantrell::Microseconds([&] {
    std::vector<std::thread> threads;
    for (int number = atoi(argv[5]); number > 0; --number) {
      threads.emplace_back(Vantrell::AskUntilDone, &load);
    }
    for (std::thread& thread : threads) thread.join();
  });
  std::sort(load.microseconds.begin(), load.microseconds.end());
  printf("%.0f", count / taken * 1e6);
  for (const double share : {0.5, 0.99, 0.999}) {
    printf(" %.1f", load.microseconds[static_cast<size_t>(share * count)]);
  }
  printf("\n");
  return 0;
}
