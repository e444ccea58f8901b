#pragma once

#include "velquist/export.h"
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <stop_token>

#include "velquist/support/executor.h"
#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::support {

/// A serial queue of jobs that the host runs on a thread of its choosing, usually its
/// main thread: the library's "main actor". Work that must happen on the UI thread is
/// enqueued here, and the host (or the command-line tool) runs it with `drain` or
/// `runUntil`. Jobs run one at a time in the order they were enqueued.
///
///     MainQueue::shared().enqueue([] { std::puts("on the main actor"); });
///     MainQueue::shared().drain();  // prints, returns 1
///
/// Thread-safety: `enqueue` from any thread. Only one thread runs jobs at a time: a
/// thread that calls `drain` or `runUntil` while another runs them waits its turn. A job
/// may itself call `drain` (it then runs the jobs queued behind it, on the same thread).
/// An exception thrown by a job leaves `drain` / `runUntil`; the jobs behind it stay
/// queued.
class MainQueue final : public Executor {
 public:
  MainQueue() = default;
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;

  /// The process-wide main queue.
  static MainQueue& shared();

  void enqueue(std::function<void()> job) override VELQUIST_EXCLUDES(mutex_);

  /// Runs jobs until the queue is empty, including jobs enqueued meanwhile; returns how
  /// many ran.
  std::size_t drain() VELQUIST_EXCLUDES(mutex_);

  /// Runs jobs as they arrive, waiting for new ones, until `done` returns true or `stop`
  /// fires. `done` is asked before each wait and after each job, so it should become
  /// true through a job (enqueue one to wake the queue).
  void runUntil(const std::function<bool()>& done, std::stop_token stop = {}) VELQUIST_EXCLUDES(mutex_);

  /// Whether the calling thread is running this queue's jobs right now.
  bool isCurrentThreadDraining() const;

 private:
  class DrainScope;
  // Takes the next job, waiting for one when `wait` is set (until `stop` fires).
  std::function<void()> take(bool wait, const std::stop_token& stop) VELQUIST_EXCLUDES(mutex_);

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<std::function<void()>> jobs_ VELQUIST_GUARDED_BY(mutex_);
  bool draining_ VELQUIST_GUARDED_BY(mutex_) = false;
};

/// Whether the calling thread is running the shared main queue, i.e. is on the main actor.
bool isOnMainActor();

}  // namespace velquist::support
VELQUIST_API_END
