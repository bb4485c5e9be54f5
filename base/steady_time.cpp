#include "base/steady_time.h"

#include <cerrno>
#include <chrono>
#include <ctime>

namespace Vantrell {

int64_t SteadyNowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void SleepMs(Milliseconds time) {
  constexpr long NanosecondsPerMs = 1000000;
  timespec rest = {time / 1000, (time % 1000) * NanosecondsPerMs};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace Vantrell
