#include "velquist/support/disposable.h"

#include <utility>

#include "velquist/support/mutex.h"

namespace velquist::support {
namespace {

// Runs an action on the first dispose.
class ActionDisposable final : public Disposable::Core {
 public:
  explicit ActionDisposable(std::function<void()> action) : action_(std::move(action)) {}

  void dispose() override VELQUIST_EXCLUDES(mutex_) {
    std::function<void()> action;
    {
      LockGuard lock(mutex_);
      if (disposed_) return;
      disposed_ = true;
      action = std::exchange(action_, nullptr);
    }
    if (action) action();
  }

  bool isDisposed() const override VELQUIST_EXCLUDES(mutex_) {
    LockGuard lock(mutex_);
    return disposed_;
  }

 private:
  mutable Mutex mutex_;
  bool disposed_ VELQUIST_GUARDED_BY(mutex_) = false;
  std::function<void()> action_ VELQUIST_GUARDED_BY(mutex_);
};

}  // namespace

Disposable::Disposable(std::function<void()> action) : core_(std::make_shared<ActionDisposable>(std::move(action))) {}

void Disposable::dispose() const {
  // A copy, since disposing may destroy this handle (say, inside a clean-up that held it).
  if (const std::shared_ptr<Core> core = core_) core->dispose();
}

bool Disposable::isDisposed() const { return !core_ || core_->isDisposed(); }

}  // namespace velquist::support
