// The smallest daemon that loads the libraries of the service: it reports READY=1 and waits for a
// signal. The difference to the service is the service's own cost.

#include <systemd/sd-daemon.h>
#include <unistd.h>

int main() {
  sd_notify(0, "READY=1");
  pause();
  return 0;
}
