#pragma once

// A mutex whose rules clang checks when it compiles (-Wthread-safety); for other compilers
// the attributes are nothing. std::mutex carries none in libstdc++, hence the wrapper.

#include <mutex>

#if defined(__clang__)
#define VANTRELL_LOCK_RULE(x) __attribute__((x))
#else
#define VANTRELL_LOCK_RULE(x)
#endif
#define GUARDED_BY(mutex) VANTRELL_LOCK_RULE(guarded_by(mutex))
#define EXCLUDES_LOCK(mutex) VANTRELL_LOCK_RULE(locks_excluded(mutex))

namespace Vantrell {

class VANTRELL_LOCK_RULE(capability("mutex")) Mutex {
 public:
  void Lock() VANTRELL_LOCK_RULE(acquire_capability()) { mutex_.lock(); }
  void Unlock() VANTRELL_LOCK_RULE(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds the mutex for the length of a scope.
class VANTRELL_LOCK_RULE(scoped_lockable) MutexHold {
 public:
  explicit MutexHold(Mutex& mutex) VANTRELL_LOCK_RULE(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.Lock();
  }
  ~MutexHold() VANTRELL_LOCK_RULE(release_capability()) { mutex_.Unlock(); }
  MutexHold(const MutexHold&) = delete;
  MutexHold& operator=(const MutexHold&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace Vantrell
