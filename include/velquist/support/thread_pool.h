#pragma once

#include "velquist/export.h"
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "velquist/support/executor.h"
#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::support {

/// A fixed set of worker threads that run enqueued jobs: each job once, on whichever
/// worker is free, in no guaranteed order (serial order is what `QueueScheduler` adds on
/// top). The shared pool is the background executor of the library's schedulers.
///
///     ThreadPool::shared().enqueue([] { compressLogs(); });
///
/// Thread-safety: `enqueue` from any thread, including from jobs. Destroying a pool runs
/// the jobs still queued, then joins its workers; it must not be destroyed by one of its
/// own jobs. A job must not throw (an exception leaving a worker ends the process).
class ThreadPool final : public Executor {
 public:
  /// Starts `threadCount` workers (at least one).
  explicit ThreadPool(std::size_t threadCount);
  ~ThreadPool() override;
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// The process-wide background pool: as many workers as the machine has cores, at least
  /// two; made on first use and kept until the process ends.
  static ThreadPool& shared();

  void enqueue(std::function<void()> job) override VELQUIST_EXCLUDES(mutex_);

 private:
  void work() VELQUIST_EXCLUDES(mutex_);

  Mutex mutex_;
  std::condition_variable_any available_;
  std::deque<std::function<void()>> jobs_ VELQUIST_GUARDED_BY(mutex_);
  bool stopping_ VELQUIST_GUARDED_BY(mutex_) = false;
  std::vector<std::thread> workers_;
};

}  // namespace velquist::support
VELQUIST_API_END
