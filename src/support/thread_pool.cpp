#include "velquist/support/thread_pool.h"

#include <algorithm>
#include <utility>

namespace velquist::support {

ThreadPool::ThreadPool(std::size_t threadCount) {
  const std::size_t count = std::max<std::size_t>(threadCount, 1);
  workers_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) workers_.emplace_back([this] { work(); });
}

ThreadPool::~ThreadPool() {
  {
    LockGuard lock(mutex_);
    stopping_ = true;
  }
  available_.notify_all();
  for (auto& worker : workers_) worker.join();
}

ThreadPool& ThreadPool::shared() {
  // Never destroyed: jobs may still be queued by other static objects' destructors at exit,
  // and idle workers blocked in a wait do not keep the process from ending.
  static ThreadPool* const pool = new ThreadPool(std::max(2u, std::thread::hardware_concurrency()));
  return *pool;
}

void ThreadPool::enqueue(std::function<void()> job) {
  {
    LockGuard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  available_.notify_one();
}

void ThreadPool::work() {
  for (;;) {
    std::function<void()> job;
    {
      LockGuard lock(mutex_);
      available_.wait(mutex_, [this]() VELQUIST_REQUIRES(mutex_) { return stopping_ || !jobs_.empty(); });
      if (jobs_.empty()) return;  // stopping, and everything queued has run
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    if (job) job();
  }
}

}  // namespace velquist::support
