// The smallest scan for processes that run one executable: it reads each link /proc/PID/exe.

#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

// Returns the number of processes whose link is `path`, or -1 when /proc cannot be opened.
int CountProcessesOf(const char* path) {
  DIR* const processes = opendir("/proc");
  if (processes == NULL) return -1;
  int count = 0;
  for (const struct dirent* entry; (entry = readdir(processes)) != NULL;) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    char link[sizeof "/proc//exe" + sizeof entry->d_name];
    char target[512];
    snprintf(link, sizeof link, "/proc/%s/exe", entry->d_name);
    const ssize_t length = readlink(link, target, sizeof target - 1);
    if (length < 0) continue;
    target[length] = '\0';
    if (strcmp(target, path) == 0) ++count;
  }
  closedir(processes);
  return count;
}
