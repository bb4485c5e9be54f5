#pragma once

// A mutex whose lock rules clang checks at compile time (-Wthread-safety). Other compilers ignore
// the attributes. It wraps std::mutex, because that has no such attributes in libstdc++.

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

// Locks the mutex until the end of the scope.
class VANTRELL_LOCK_RULE(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) VANTRELL_LOCK_RULE(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.Lock();
  }
  ~MutexLock() VANTRELL_LOCK_RULE(release_capability()) { mutex_.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace Vantrell
