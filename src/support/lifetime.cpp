#include "velquist/support/lifetime.h"

namespace velquist::support {

std::pair<Lifetime, Lifetime::Token> Lifetime::make() {
  auto state = std::make_shared<detail::LifetimeState>();
  return {Lifetime(state), Token(state)};
}

void Lifetime::observeEnded(std::function<void()> action) const { state_->observeEnded(std::move(action)); }

bool Lifetime::hasEnded() const { return state_->hasEnded(); }

Lifetime::Token& Lifetime::Token::operator=(Token&& other) noexcept {
  if (this != &other) {
    end();
    state_ = std::move(other.state_);
  }
  return *this;
}

void Lifetime::Token::end() const {
  if (state_) state_->end();  // empty only when moved from
}

void detail::LifetimeState::observeEnded(std::function<void()> action) {
  if (!action) return;
  {
    LockGuard lock(mutex_);
    if (!ended_) {
      actions_.push_back(std::move(action));
      return;
    }
  }
  action();
}

bool detail::LifetimeState::hasEnded() const {
  LockGuard lock(mutex_);
  return ended_;
}

void detail::LifetimeState::end() {
  std::vector<std::function<void()>> actions;
  {
    LockGuard lock(mutex_);
    if (ended_) return;
    ended_ = true;
    actions.swap(actions_);
  }
  for (auto& action : actions) action();
  // Leaving here releases whatever the actions held (a request, a delegate, ...).
}

}  // namespace velquist::support
