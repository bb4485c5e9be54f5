#include "base/own_thread.h"

#include <system_error>
#include <thread>

namespace Vantrell {

void RunOnOwnThread(const std::function<void()>& work) {
  std::thread thread;
  try {
    thread = std::thread(std::cref(work));
  } catch (const std::system_error&) {
    work();
    return;
  }
  thread.join();
}

}  // namespace Vantrell
