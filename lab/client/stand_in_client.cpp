// The stand-in for the desktop client, installed as /usr/bin/vantrell-harbor by the packages of
// the lab. It runs until a signal ends it and sends requests to the update service on signals. It
// logs each event, so that a test or the demo can read which version was started, with which
// arguments and environment.
//
//   SIGTERM  ends it          SIGUSR2  opens one more session hold
//   SIGUSR1  sends APPLY      SIGHUP   gives all holds back
//
// Its package sets the rest of its behaviour: BehaviourPath holds one of these per line,
//   stay | die-after SECONDS | exit-code N | ignore-term | linger-after-apply
//
// Each event is one line of LogPath, or of standard error if LogPath cannot be opened. A line is
// written in one call: several clients share the file.

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "base/descriptor.h"

namespace Vantrell {
namespace {

constexpr char LogPath[] = "/var/log/vantrell-harbor-client.log";
constexpr char BehaviourPath[] = "/usr/share/vantrell-harbor/behaviour";
constexpr char VersionPath[] = "/usr/share/vantrell-harbor/version";
constexpr char SocketPath[] = "/run/vantrell/update.sock";
constexpr int BadBehaviour = 2;  // exit status when BehaviourPath cannot be parsed

using Clock = std::chrono::steady_clock;

struct Behaviour {
  std::optional<double> dieAfterSeconds;
  int exitCode = 0;  // exit status, after SIGTERM too
  bool ignoreTerm = false;
  bool lingerAfterApply = false;
};

// One request to the service, open until the service or this client closes it.
struct Request {
  const char* verb;
  Descriptor socket;
  std::string received;  // the part of a reply without its line feed so far
};

struct Client {
  Behaviour behaviour;
  std::string recordHead;  // the beginning of every line: version, pid and uid
  Descriptor log;
  Descriptor signals;
  std::vector<Request> requests;
  bool ended = false;
};

// Quotes as in C source, so that empty texts, blanks and line feeds are visible. Octal escapes,
// because a hexadecimal escape has no fixed length.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      quoted += {'\\', character};
    } else if (character == '\n') {
      quoted += "\\n";
    } else if (byte >= 0x20 && byte < 0x7f) {
      quoted += character;
    } else {
      char escape[5];
      (void)snprintf(escape, sizeof escape, "\\%03o", unsigned{byte});
      quoted += escape;
    }
  }
  return quoted + '"';
}

std::string QuotedList(char** texts) {
  std::string list = "[";
  for (char** text = texts; *text != nullptr; ++text) {
    if (text != texts) list += ", ";
    list += Quoted(*text);
  }
  return list + "]";
}

void Record(const Client& client, const std::string& event) {
  const std::string line = client.recordHead + event + "\n";
  const int target = client.log ? client.log.Number() : STDERR_FILENO;
  // A record that cannot be written is lost: nothing else can take it.
  if (write(target, line.data(), line.size()) < 0) return;
}

// Created world-writable: clients of several users and of root append to the same file.
Descriptor OpenLog() {
  const mode_t mask = umask(0);
  Descriptor log(open(LogPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  (void)umask(mask);
  return log;
}

bool ReadBehaviour(Behaviour& behaviour) {
  std::ifstream file(BehaviourPath);
  std::string word;
  while (file >> word) {
    if (word == "stay") {
      continue;
    } else if (word == "die-after") {
      if (!(file >> behaviour.dieAfterSeconds.emplace())) return false;
    } else if (word == "exit-code") {
      if (!(file >> behaviour.exitCode)) return false;
    } else if (word == "ignore-term") {
      behaviour.ignoreTerm = true;
    } else if (word == "linger-after-apply") {
      behaviour.lingerAfterApply = true;
    } else {
      return false;
    }
  }
  return true;
}

std::string ReadVersion() {
  std::string version = "unknown";
  std::ifstream(VersionPath) >> version;
  return version;
}

// The loop reads signals as input, so that no signal interrupts its work.
Descriptor OpenSignals() {
  sigset_t wanted;
  (void)sigemptyset(&wanted);
  for (const int number : {SIGTERM, SIGUSR1, SIGUSR2, SIGHUP}) (void)sigaddset(&wanted, number);
  (void)sigprocmask(SIG_BLOCK, &wanted, nullptr);
  return Descriptor(signalfd(-1, &wanted, SFD_CLOEXEC));
}

void Send(Client& client, const char* verb) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  static_assert(sizeof SocketPath <= sizeof address.sun_path);
  memcpy(address.sun_path, SocketPath, sizeof SocketPath);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const std::string line = std::string(verb) + "\n";
  if (connect(socket.Number(), reinterpret_cast<sockaddr*>(&address), sizeof address) < 0 ||
      send(socket.Number(), line.data(), line.size(), MSG_NOSIGNAL) < 0) {
    Record(client, std::string(verb) + " failed: " + strerror(errno));
    return;
  }
  client.requests.push_back({verb, std::move(socket), ""});
}

void GiveHoldsBack(Client& client) {
  const auto isHold = [](const Request& request) { return strcmp(request.verb, "HOLD") == 0; };
  const size_t given = std::erase_if(client.requests, isHold);
  Record(client, "holds given back: " + std::to_string(given));
}

void TakeSignal(Client& client) {
  signalfd_siginfo signal{};
  if (read(client.signals.Number(), &signal, sizeof signal) != sizeof signal) return;
  switch (static_cast<int>(signal.ssi_signo)) {
    case SIGUSR1:
      return Send(client, "APPLY");
    case SIGUSR2:
      return Send(client, "HOLD");
    case SIGHUP:
      return GiveHoldsBack(client);
    default:
      Record(client, client.behaviour.ignoreTerm ? "SIGTERM ignored" : "SIGTERM");
      client.ended = !client.behaviour.ignoreTerm;
  }
}

// False when the service has closed the connection.
bool TakeReply(Client& client, Request& request) {
  char block[256];
  const ssize_t size = read(request.socket.Number(), block, sizeof block);
  if (size <= 0) {
    Record(client, std::string(request.verb) + " closed");
    return false;
  }
  request.received.append(block, static_cast<size_t>(size));
  const size_t end = request.received.find('\n');
  if (end == std::string::npos) return true;
  const std::string reply = request.received.substr(0, end);
  request.received.erase(0, end + 1);
  Record(client, std::string(request.verb) + " " + Quoted(reply));
  // The service now waits until this process exits, and then replaces it.
  if (reply == "OK applying" && !client.behaviour.lingerAfterApply) client.ended = true;
  return true;
}

// The time limit for poll: -1, no limit, for a client that stays. Rounded up, so that the client
// never ends early. At most an hour; the loop then computes it again.
int RemainingMs(const Behaviour& behaviour, Clock::time_point started) {
  if (!behaviour.dieAfterSeconds) return -1;
  const std::chrono::duration<double> life(*behaviour.dieAfterSeconds);
  const std::chrono::duration<double> remaining = life - (Clock::now() - started);
  return static_cast<int>(std::ceil(std::clamp(remaining.count(), 0.0, 3600.0) * 1000));
}

void WaitAndServe(Client& client, int waitMs) {
  std::vector<pollfd> entries = {{client.signals.Number(), POLLIN, 0}};
  for (const Request& request : client.requests) {
    entries.push_back({request.socket.Number(), POLLIN, 0});
  }
  if (poll(entries.data(), entries.size(), waitMs) <= 0) return;
  // From the last to the first, and signals after that: both steps change the list.
  for (size_t index = client.requests.size(); index-- > 0;) {
    if (entries[index + 1].revents == 0) continue;
    if (TakeReply(client, client.requests[index])) continue;
    client.requests.erase(client.requests.begin() + static_cast<ptrdiff_t>(index));
  }
  if (entries[0].revents != 0) TakeSignal(client);
}

int RunClient(char** arguments) {
  const Clock::time_point started = Clock::now();
  Client client;
  client.log = OpenLog();
  client.signals = OpenSignals();
  client.recordHead = "[" + ReadVersion() + " pid " + std::to_string(getpid()) + " uid " +
                      std::to_string(getuid()) + "] ";
  if (!ReadBehaviour(client.behaviour)) {
    Record(client, std::string("unreadable behaviour in ") + BehaviourPath);
    return BadBehaviour;
  }
  Record(client, "start argv " + QuotedList(arguments) + " environment " + QuotedList(environ));
  while (!client.ended) {
    const int remainingMs = RemainingMs(client.behaviour, started);
    if (remainingMs == 0) break;
    WaitAndServe(client, remainingMs);
  }
  Record(client, "end " + std::to_string(client.behaviour.exitCode));
  return client.behaviour.exitCode;
}

}  // namespace
}  // namespace Vantrell

int main(int, char** arguments) { return Vantrell::RunClient(arguments); }
