#pragma once

#include "velquist/export.h"
#include <functional>
#include <memory>

VELQUIST_API_BEGIN
namespace velquist::support {

/// A handle that ends something that was started, such as a subscription to a signal
/// producer: `dispose` acts once, and every later call does nothing. Copies refer to the
/// same thing; dropping every copy does not dispose it.
///
///     Disposable subscription = producer.start({.value = show});
///     subscription.dispose();  // show is not called again
///
/// Thread-safety: all members may be called from any thread, concurrently.
class Disposable {
 public:
  /// What a disposable ends; implemented by whatever knows how to stop itself.
  class Core {
   public:
    virtual ~Core() = default;
    /// Called for every `dispose`; must act only the first time.
    virtual void dispose() = 0;
    virtual bool isDisposed() const = 0;
  };

  /// Disposes nothing and counts as disposed already.
  Disposable() = default;
  /// Runs `action` on the first `dispose` (an empty action does nothing).
  explicit Disposable(std::function<void()> action);
  explicit Disposable(std::shared_ptr<Core> core) : core_(std::move(core)) {}

  void dispose() const;
  /// Whether it has been disposed, or what it ends has ended by itself.
  bool isDisposed() const;

 private:
  std::shared_ptr<Core> core_;
};

}  // namespace velquist::support
VELQUIST_API_END
