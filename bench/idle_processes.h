#pragma once

// Processes for the scan to pass over.

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace Vantrell {

// Starts children that sleep until they are killed, or until this process ends.
inline std::vector<pid_t> StartIdleProcesses(int count) {
  std::vector<pid_t> processes;
  while (count-- > 0) {
    const pid_t process = fork();
    if (process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (;;) pause();
    }
    if (process < 0) {
      perror("cannot start an idle process");
      exit(1);
    }
    processes.push_back(process);
  }
  return processes;
}

}  // namespace Vantrell
