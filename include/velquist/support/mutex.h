#pragma once

#include "velquist/export.h"
#include <mutex>

// Locks annotated for clang's thread-safety analysis (-Wthread-safety): data members say
// which lock guards them, functions say which locks they need, and the compiler checks.
#if defined(__clang__)
#define VELQUIST_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VELQUIST_THREAD_ANNOTATION(x)
#endif

#define VELQUIST_CAPABILITY(name) VELQUIST_THREAD_ANNOTATION(capability(name))
#define VELQUIST_SCOPED_CAPABILITY VELQUIST_THREAD_ANNOTATION(scoped_lockable)
#define VELQUIST_GUARDED_BY(lock) VELQUIST_THREAD_ANNOTATION(guarded_by(lock))
#define VELQUIST_REQUIRES(...) VELQUIST_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VELQUIST_ACQUIRE(...) VELQUIST_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VELQUIST_RELEASE(...) VELQUIST_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VELQUIST_EXCLUDES(...) VELQUIST_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

VELQUIST_API_BEGIN
namespace velquist::support {

/// A mutex the thread-safety analysis knows about.
class VELQUIST_CAPABILITY("mutex") Mutex {
 public:
  void lock() VELQUIST_ACQUIRE() { mutex_.lock(); }
  void unlock() VELQUIST_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// A mutex the owning thread may take again while holding it.
class VELQUIST_CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() VELQUIST_ACQUIRE() { mutex_.lock(); }
  void unlock() VELQUIST_RELEASE() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

/// Holds a lock for the rest of the scope.
template <class Lockable>
class VELQUIST_SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(Lockable& lockable) VELQUIST_ACQUIRE(lockable) : lockable_(lockable) { lockable_.lock(); }
  ~LockGuard() VELQUIST_RELEASE() { lockable_.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Lockable& lockable_;
};

}  // namespace velquist::support
VELQUIST_API_END
