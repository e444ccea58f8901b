#pragma once

#include "velquist/export.h"
#include <functional>
#include <memory>
#include <string>

#include "velquist/support/executor.h"
#include "velquist/support/thread_pool.h"

VELQUIST_API_BEGIN
namespace velquist::support {

namespace detail {
class SerialQueue;
}  // namespace detail

/// A named serial queue: jobs run one at a time, each after the one scheduled before it,
/// on the threads of a shared executor (by default `ThreadPool::shared()`). A scheduler
/// owns no thread: while it has work it occupies one worker of the executor, and while it
/// has none it costs nothing, so a process may have many. Signal producers deliver their
/// events on one with `observeOn` and start on one with `startOn`.
///
///     QueueScheduler scheduler("velquist.store-kit.transaction-listener");
///     scheduler.schedule([] { handleBatch(); });
///     scheduler.schedule([] { notifyListeners(); });  // after handleBatch has returned
///
/// A QueueScheduler is a handle: copies share one queue, which lives while a copy or a
/// scheduled job remains. The executor must outlive every job scheduled on it.
///
/// Thread-safety: all members may be used from any thread, including from its own jobs
/// (a job scheduled from a job runs after it). Jobs must not throw.
class QueueScheduler {
 public:
  explicit QueueScheduler(std::string name, Executor& executor = ThreadPool::shared());

  /// The name given at creation, for logs and debugging.
  const std::string& name() const;

  /// Queues `job` to run after every job scheduled before it; never runs it before returning.
  void schedule(std::function<void()> job) const;

  /// Whether the calling thread is running one of this scheduler's jobs right now.
  bool isCurrent() const;

  /// Copies of one scheduler are equal; separately made schedulers are not, whatever their names.
  friend bool operator==(const QueueScheduler& a, const QueueScheduler& b) { return a.queue_ == b.queue_; }

 private:
  std::shared_ptr<detail::SerialQueue> queue_;
};

}  // namespace velquist::support
VELQUIST_API_END
