#pragma once

// The memory of the calling process.

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Vantrell {

// A size in /proc/self/status, such as "VmRSS", in bytes.
inline double ReadOwnMemory(const char* field) {
  FILE* const status = fopen("/proc/self/status", "re");
  char line[256];
  double bytes = 0;
  while (status != nullptr && fgets(line, sizeof line, status) != nullptr) {
    if (strncmp(line, field, strlen(field)) == 0) bytes = 1024 * atof(line + strlen(field) + 1);
  }
  if (status != nullptr) fclose(status);
  return bytes;
}

}  // namespace Vantrell
