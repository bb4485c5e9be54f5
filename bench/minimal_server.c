// The smallest server with one thread for each connection: it accepts, reads one line byte by byte,
// sends a fixed reply and closes. The difference to the service is the service's own cost.
//
//   minimal_server SOCKET REPLY [limited]
//
// "limited" adds what a server needs to stop at once and to survive silent peers: a poll for a stop
// together with the poll for a connection, and a time limit for each read and send.

#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

static char reply[256];
static int limited;

static void* Serve(void* argument) {
  const int connection = (int)(intptr_t)argument;
  if (limited) {
    const struct timeval limit = {15, 0};
    (void)setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    (void)setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  }
  char byte = 0;
  while (byte != '\n' && read(connection, &byte, 1) == 1) continue;
  (void)send(connection, reply, strlen(reply), MSG_NOSIGNAL);
  close(connection);
  return NULL;
}

int main(int argc, char** argv) {
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  if (argc < 3 || strlen(argv[1]) >= sizeof address.sun_path) return 2;
  memcpy(address.sun_path, argv[1], strlen(argv[1]) + 1);
  snprintf(reply, sizeof reply, "%s\n", argv[2]);
  limited = argc > 3;

  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  (void)unlink(address.sun_path);
  if (bind(listener, (struct sockaddr*)&address, sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    perror("minimal_server");
    return 1;
  }
  struct pollfd entries[] = {{listener, POLLIN, 0}, {eventfd(0, EFD_CLOEXEC), POLLIN, 0}};
  for (;;) {
    if (limited) (void)poll(entries, 2, -1);
    const int connection = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
    pthread_t thread;
    if (connection < 0) continue;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the number itself is the argument.
    if (pthread_create(&thread, NULL, Serve, (void*)(intptr_t)connection) != 0) return 1;
    (void)pthread_detach(thread);
  }
}
