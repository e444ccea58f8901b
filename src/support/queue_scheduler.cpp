#include "velquist/support/queue_scheduler.h"

#include <deque>
#include <utility>

#include "velquist/support/mutex.h"

namespace velquist::support {

namespace detail {

// The jobs of one scheduler. At most one turn of the queue is on the executor at a time;
// a turn runs one job and, when more are waiting, hands the next turn back to the
// executor, so a busy queue takes its share of the workers and no more.
class SerialQueue : public std::enable_shared_from_this<SerialQueue> {
 public:
  SerialQueue(std::string name, Executor& executor) : name_(std::move(name)), executor_(executor) {}

  const std::string& name() const { return name_; }

  void schedule(std::function<void()> job) VELQUIST_EXCLUDES(mutex_) {
    {
      LockGuard lock(mutex_);
      jobs_.push_back(std::move(job));
      if (turnPending_) return;
      turnPending_ = true;
    }
    enqueueTurn();
  }

  bool isCurrent() const;

 private:
  void enqueueTurn() {
    executor_.enqueue([self = shared_from_this()] { self->runTurn(); });
  }

  void runTurn() VELQUIST_EXCLUDES(mutex_);

  const std::string name_;
  Executor& executor_;
  Mutex mutex_;
  std::deque<std::function<void()>> jobs_ VELQUIST_GUARDED_BY(mutex_);
  bool turnPending_ VELQUIST_GUARDED_BY(mutex_) = false;  // a turn is queued or running
};

namespace {

// The queue whose job this thread is running, if any.
thread_local const SerialQueue* currentQueue = nullptr;

class CurrentQueueScope {
 public:
  explicit CurrentQueueScope(const SerialQueue* queue) : previous_(std::exchange(currentQueue, queue)) {}
  ~CurrentQueueScope() { currentQueue = previous_; }
  CurrentQueueScope(const CurrentQueueScope&) = delete;
  CurrentQueueScope& operator=(const CurrentQueueScope&) = delete;

 private:
  const SerialQueue* previous_;
};

}  // namespace

bool SerialQueue::isCurrent() const { return currentQueue == this; }

void SerialQueue::runTurn() {
  std::function<void()> job;
  {
    LockGuard lock(mutex_);
    job = std::move(jobs_.front());  // a turn is only queued with a job waiting
    jobs_.pop_front();
  }
  {
    CurrentQueueScope scope(this);
    if (job) job();
  }
  job = nullptr;  // release what the job held before the next one runs
  {
    LockGuard lock(mutex_);
    if (jobs_.empty()) {
      turnPending_ = false;
      return;
    }
  }
  enqueueTurn();
}

}  // namespace detail

QueueScheduler::QueueScheduler(std::string name, Executor& executor)
    : queue_(std::make_shared<detail::SerialQueue>(std::move(name), executor)) {}

const std::string& QueueScheduler::name() const { return queue_->name(); }

void QueueScheduler::schedule(std::function<void()> job) const { queue_->schedule(std::move(job)); }

bool QueueScheduler::isCurrent() const { return queue_->isCurrent(); }

}  // namespace velquist::support
