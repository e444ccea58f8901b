#include "velquist/support/main_queue.h"

#include <utility>

namespace velquist::support {
namespace {

// The queue whose jobs this thread is running, if any.
thread_local const MainQueue* drainingQueue = nullptr;

}  // namespace

// Claims the right to run the queue's jobs for the scope: waits while another thread has
// it; a nested claim on the thread that already has it is free.
class MainQueue::DrainScope {
 public:
  explicit DrainScope(MainQueue& queue) : queue_(queue), nested_(drainingQueue == &queue) {
    if (nested_) return;
    {
      LockGuard lock(queue_.mutex_);
      queue_.changed_.wait(queue_.mutex_, [this]() VELQUIST_REQUIRES(queue_.mutex_) { return !queue_.draining_; });
      queue_.draining_ = true;
    }
    previous_ = std::exchange(drainingQueue, &queue_);
  }
  ~DrainScope() {
    if (nested_) return;
    drainingQueue = previous_;
    {
      LockGuard lock(queue_.mutex_);
      queue_.draining_ = false;
    }
    queue_.changed_.notify_all();
  }
  DrainScope(const DrainScope&) = delete;
  DrainScope& operator=(const DrainScope&) = delete;

 private:
  MainQueue& queue_;
  bool nested_;
  const MainQueue* previous_ = nullptr;
};

MainQueue& MainQueue::shared() {
  static MainQueue queue;
  return queue;
}

void MainQueue::enqueue(std::function<void()> job) {
  {
    LockGuard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  changed_.notify_all();
}

std::function<void()> MainQueue::take(bool wait, const std::stop_token& stop) {
  LockGuard lock(mutex_);
  if (wait) changed_.wait(mutex_, stop, [this]() VELQUIST_REQUIRES(mutex_) { return !jobs_.empty(); });
  if (jobs_.empty()) return nullptr;
  auto job = std::move(jobs_.front());
  jobs_.pop_front();
  return job;
}

std::size_t MainQueue::drain() {
  DrainScope scope(*this);
  std::size_t count = 0;
  while (auto job = take(false, {})) {
    job();
    ++count;
  }
  return count;
}

void MainQueue::runUntil(const std::function<bool()>& done, std::stop_token stop) {
  DrainScope scope(*this);
  while (!done() && !stop.stop_requested()) {
    if (auto job = take(true, stop)) job();
  }
}

bool MainQueue::isCurrentThreadDraining() const { return drainingQueue == this; }

bool isOnMainActor() { return MainQueue::shared().isCurrentThreadDraining(); }

}  // namespace velquist::support
