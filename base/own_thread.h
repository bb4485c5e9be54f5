#pragma once

// A thread for one piece of work, for the sake of the memory that the C library keeps for a thread:
// it gives this memory back only when the thread has ended.

#include <functional>

namespace Vantrell {

// Runs `work` on a new thread and returns when it has ended. Where no thread can be made, the
// calling thread runs it. Any thread may call it; it logs nothing.
void RunOnOwnThread(const std::function<void()>& work);

}  // namespace Vantrell
