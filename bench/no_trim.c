// Loaded before the C library: the service calls this malloc_trim, which gives no memory back.

#include <stddef.h>

int malloc_trim(size_t pad) {  // NOLINT(readability-identifier-naming)
  (void)pad;
  return 0;
}
