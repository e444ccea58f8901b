#pragma once

#include "velquist/export.h"
#include <functional>
#include <memory>
#include <stop_token>

#include "velquist/support/executor.h"

VELQUIST_API_BEGIN
namespace velquist::support {

/// A piece of work started on an executor, with cooperative cancellation: `cancel` only
/// asks; the work sees it through `Task::isCurrentCancelled()` or
/// `Task::currentStopToken()` and decides what to do. The work always runs, cancelled or
/// not, and runs with the dependency values that were current where the Task was made.
///
///     Task task(MainQueue::shared(), [] { refreshScreen(); });
///     task.cancel();  // refreshScreen still runs, but may check isCurrentCancelled()
///
/// A Task is a handle: copies refer to the same work, and dropping every handle neither
/// stops nor cancels it. Thread-safety: all members may be used from any thread.
class Task {
 public:
  /// Starts `operation` on `executor` (enqueues it; never runs it before returning).
  Task(Executor& executor, std::function<void()> operation);

  void cancel() const;
  bool isCancelled() const;

  /// Whether the task this thread is running has been cancelled; false outside a task.
  static bool isCurrentCancelled();
  /// The stop token of the task this thread is running; a token that never stops
  /// outside a task.
  static std::stop_token currentStopToken();

 private:
  std::shared_ptr<std::stop_source> stop_;
};

}  // namespace velquist::support
VELQUIST_API_END
