#pragma once

// Running work on a thread of its own. The C library keeps memory for each thread and frees it only
// after the thread has ended.

#include <functional>

namespace Vantrell {

// Runs `work` on a new thread and returns when it has ended. Where no thread can be made, the
// calling thread runs it. Any thread may call it; it logs nothing.
void RunOnOwnThread(const std::function<void()>& work);

}  // namespace Vantrell
