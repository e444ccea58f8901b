#include "velquist/support/task.h"

#include <utility>

#include "velquist/support/dependency_values.h"

namespace velquist::support {
namespace {

thread_local std::stop_token currentToken;

// Makes a task's stop token current on this thread for the scope.
class CurrentTokenScope {
 public:
  explicit CurrentTokenScope(std::stop_token token) : previous_(std::exchange(currentToken, std::move(token))) {}
  ~CurrentTokenScope() { currentToken = std::move(previous_); }
  CurrentTokenScope(const CurrentTokenScope&) = delete;
  CurrentTokenScope& operator=(const CurrentTokenScope&) = delete;

 private:
  std::stop_token previous_;
};

}  // namespace

Task::Task(Executor& executor, std::function<void()> operation) : stop_(std::make_shared<std::stop_source>()) {
  executor.enqueue([token = stop_->get_token(), values = DependencyValues::current(),
                    operation = std::move(operation)] {
    CurrentTokenScope tokenScope(token);
    DependencyScope dependencyScope(values);
    if (operation) operation();
  });
}

void Task::cancel() const { stop_->request_stop(); }

bool Task::isCancelled() const { return stop_->stop_requested(); }

bool Task::isCurrentCancelled() { return currentToken.stop_requested(); }

std::stop_token Task::currentStopToken() { return currentToken; }

}  // namespace velquist::support
