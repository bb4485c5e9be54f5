#pragma once

// The leak check of the address sanitizer. It normally runs in an exit handler, and this program
// exits without exit handlers. Does nothing in a build without this sanitizer.

#if defined(__SANITIZE_ADDRESS__)
#define VANTRELL_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VANTRELL_ADDRESS_SANITIZER
#endif
#endif

#ifdef VANTRELL_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace Vantrell {

// Reports leaks on standard error. The process continues.
inline void CheckForLeaks() {
#ifdef VANTRELL_ADDRESS_SANITIZER
  __lsan_do_recoverable_leak_check();
#endif
}

}  // namespace Vantrell
