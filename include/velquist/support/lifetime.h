#pragma once

#include "velquist/export.h"
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::support {

namespace detail {
class LifetimeState;
}  // namespace detail

/// How long something lasts, seen from the outside: code can ask to be told when it ends
/// (to cancel a request, release a delegate, ...). A lifetime ends once, when its `Token`
/// is ended or destroyed; a signal producer's subscription has one that ends with the
/// subscription (completed, failed, interrupted or disposed).
///
///     auto [lifetime, token] = Lifetime::make();
///     lifetime.observeEnded([request] { request->cancel(); });
///     token.end();  // cancels the request
///
/// Thread-safety: all members may be called from any thread. The actions run on the thread
/// that ends the lifetime, one after the other in the order they were added, with no lock
/// held; they must not throw.
class Lifetime {
 public:
  class Token;

  /// A new lifetime and the only token that ends it.
  static std::pair<Lifetime, Token> make();

  /// Runs `action` once when the lifetime ends; at once, on this thread, if it has ended.
  void observeEnded(std::function<void()> action) const;
  bool hasEnded() const;

 private:
  explicit Lifetime(std::shared_ptr<detail::LifetimeState> state) : state_(std::move(state)) {}
  std::shared_ptr<detail::LifetimeState> state_;
};

/// Ends its lifetime when `end` is called or when the token is destroyed.
class Lifetime::Token {
 public:
  Token(Token&&) noexcept = default;
  Token& operator=(Token&& other) noexcept;
  Token(const Token&) = delete;
  Token& operator=(const Token&) = delete;
  ~Token() { end(); }

  /// Ends the lifetime (only the first call does anything). May be called from any thread.
  void end() const;
  Lifetime lifetime() const { return Lifetime(state_); }

 private:
  friend class Lifetime;
  explicit Token(std::shared_ptr<detail::LifetimeState> state) : state_(std::move(state)) {}
  std::shared_ptr<detail::LifetimeState> state_;
};

namespace detail {

// Whether the lifetime has ended and what is to run when it does.
class LifetimeState {
 public:
  void observeEnded(std::function<void()> action) VELQUIST_EXCLUDES(mutex_);
  bool hasEnded() const VELQUIST_EXCLUDES(mutex_);
  void end() VELQUIST_EXCLUDES(mutex_);

 private:
  mutable Mutex mutex_;
  bool ended_ VELQUIST_GUARDED_BY(mutex_) = false;
  std::vector<std::function<void()>> actions_ VELQUIST_GUARDED_BY(mutex_);
};

}  // namespace detail

}  // namespace velquist::support
VELQUIST_API_END
