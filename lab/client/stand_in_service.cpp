// The stand-in for a build of the update service that does not work. A package that has it in the
// place of the service also has a shell script for it, which says how the build fails. The script
// itself cannot be the program: a release of one is refused when it is published.

#include <unistd.h>

int main() {
  execl("/bin/sh", "sh", "/usr/share/vantrell-harbor/service-script", nullptr);
  return 126;
}
