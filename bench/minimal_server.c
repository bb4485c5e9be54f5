// The least that a server with a thread for each connection can do: accept, read one line byte
// by byte, send a fixed reply, close. What the service needs beyond that is its own cost.
//
//   minimal_server SOCKET REPLY [limited]
//
// "limited" adds what nobody can leave out who must stop at once and survive silent peers: the
// wait for a stop beside the wait for a connection, and a limit for each read and send.

#define _GNU_SOURCE  // accept4
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

static void* serve(void* argument) {
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
  strcpy(address.sun_path, argv[1]);
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
    if (pthread_create(&thread, NULL, serve, (void*)(intptr_t)connection) != 0) return 1;
    (void)pthread_detach(thread);
  }
}
