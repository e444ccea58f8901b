#pragma once

#include "velquist/export.h"
#include <concepts>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "velquist/support/disposable.h"
#include "velquist/support/lifetime.h"
#include "velquist/support/mutex.h"
#include "velquist/support/queue_scheduler.h"

VELQUIST_API_BEGIN
namespace velquist::support {

/// What a subscriber hears from a started signal producer: any number of values, then at
/// most one of failed, completed or interrupted. Any handler may be left empty.
template <class Value, class Error>
struct SignalHandlers {
  std::function<void(Value)> value;
  std::function<void(Error)> failed;
  std::function<void()> completed;
  std::function<void()> interrupted;
};

namespace detail {

// One subscription: the subscriber's handlers, the events waiting for them, and the
// lifetime that ends with the subscription.
//
// Events may be sent from any thread. Whoever sends into an idle subscription becomes its
// deliverer and hands out events one at a time, with no lock held, until none are left;
// a sender that finds a deliverer at work only queues its event. So the handlers never run
// on two threads at once, and see the events in the order they were accepted.
template <class Value, class Error>
class SignalState final : public Disposable::Core {
 public:
  using Handlers = SignalHandlers<Value, Error>;
  struct Next {
    Value value;
  };
  struct Failed {
    Error error;
  };
  struct Completed {};
  struct Interrupted {};
  using Event = std::variant<Next, Failed, Completed, Interrupted>;

  SignalState(Handlers handlers, Lifetime::Token token) : handlers_(std::move(handlers)), token_(std::move(token)) {}

  // Accepts an event unless the subscription has already accepted its terminal event or
  // been disposed, and delivers it (now, or through the thread already delivering).
  void send(Event event) VELQUIST_EXCLUDES(mutex_) {
    {
      LockGuard lock(mutex_);
      if (terminated_ || disposed_) return;
      terminated_ = !std::holds_alternative<Next>(event);
      pending_.push_back(std::move(event));
      if (delivering_) return;
      delivering_ = true;
    }
    deliverPending();
  }

  // Drops the events not yet handed out, lets no handler start any more, and ends the
  // lifetime. A handler already running on another thread finishes its call.
  void dispose() override VELQUIST_EXCLUDES(mutex_) {
    std::deque<Event> dropped;
    Handlers released;
    {
      LockGuard lock(mutex_);
      if (disposed_) return;
      disposed_ = true;
      dropped.swap(pending_);
      if (!delivering_) released = std::move(handlers_);  // else the deliverer releases them
    }
    token_.end();
  }

  bool isDisposed() const override { return token_.lifetime().hasEnded(); }

 private:
  void deliverPending() VELQUIST_EXCLUDES(mutex_) {
    for (;;) {
      std::optional<Event> event;
      Handlers released;  // destroyed after the lock is released
      {
        LockGuard lock(mutex_);
        if (disposed_ || pending_.empty()) {
          delivering_ = false;
          if (disposed_) released = std::move(handlers_);
          return;
        }
        event.emplace(std::move(pending_.front()));
        pending_.pop_front();
      }
      if (std::holds_alternative<Next>(*event)) {
        if (handlers_.value) handlers_.value(std::move(std::get<Next>(*event).value));
        continue;
      }
      if (const auto* failed = std::get_if<Failed>(&*event)) {
        if (handlers_.failed) handlers_.failed(failed->error);
      } else if (std::holds_alternative<Completed>(*event)) {
        if (handlers_.completed) handlers_.completed();
      } else if (handlers_.interrupted) {
        handlers_.interrupted();
      }
      // That was the last event: nothing more can be accepted, so nothing is pending.
      {
        LockGuard lock(mutex_);
        delivering_ = false;
        released = std::move(handlers_);
      }
      token_.end();
      return;
    }
  }

  Mutex mutex_;
  // Used only by the thread that set `delivering_`, or under the lock while none has.
  Handlers handlers_;
  std::deque<Event> pending_ VELQUIST_GUARDED_BY(mutex_);
  bool delivering_ VELQUIST_GUARDED_BY(mutex_) = false;
  bool terminated_ VELQUIST_GUARDED_BY(mutex_) = false;  // a terminal event was accepted
  bool disposed_ VELQUIST_GUARDED_BY(mutex_) = false;
  const Lifetime::Token token_;
};

}  // namespace detail

/// The sending side of one subscription, given to a producer's start-up closure. Events
/// after the first terminal one (failed, completed, interrupted), and all events after the
/// subscription was disposed, are ignored.
///
/// Thread-safety: an Observer is a cheap handle; copies may be used from any threads at
/// once. A send may return before the subscriber has heard the event, when another
/// thread is delivering at that moment (it then delivers this one too, in order).
template <class Value, class Error>
class SignalObserver {
 public:
  void send(Value value) const { deliver(typename State::Next{std::move(value)}); }
  void sendFailed(Error error) const { deliver(typename State::Failed{std::move(error)}); }
  void sendCompleted() const { deliver(typename State::Completed{}); }
  void sendInterrupted() const { deliver(typename State::Interrupted{}); }

 private:
  template <class, class>
  friend class SignalProducer;
  using State = detail::SignalState<Value, Error>;
  explicit SignalObserver(std::shared_ptr<State> state) : state_(std::move(state)) {}

  // Holds the subscription for the whole delivery: a clean-up it runs may destroy this
  // observer (say, with the delegate that owns it).
  void deliver(typename State::Event event) const {
    const std::shared_ptr<State> state = state_;
    state->send(std::move(event));
  }

  std::shared_ptr<State> state_;
};

/// A cold producer of signals: a recipe that does its work again each time it is started.
/// Starting it calls the start-up closure with an `Observer` (to send values and one
/// terminal event) and the subscription's `Lifetime` (to register clean-ups); what the
/// closure sends reaches the handlers given to `start`. The subscription ends with its
/// terminal event or with `dispose` on the Disposable that `start` returns; either way the
/// lifetime ends then, once, and its clean-ups run. Once `dispose` has returned no handler
/// starts (one already running on another thread finishes). `Error` is the failure type;
/// `std::exception_ptr` stands for "any error".
///
///     SignalProducer<int> numbers([](auto observer, Lifetime lifetime) {
///       lifetime.observeEnded([] { std::puts("ended"); });
///       observer.send(1);
///       observer.send(2);
///       observer.sendCompleted();
///     });
///     numbers.start({.value = [](int n) { std::printf("%d\n", n); }});
///     // prints 1, 2, ended; starting again prints them again
///
/// Handlers run on the thread that sent the event unless the producer is moved onto a
/// scheduler with `observeOn`; they never run concurrently for one subscription, and
/// must not throw. Value and Error must be copyable.
///
/// Thread-safety: a SignalProducer is an immutable value; it may be copied and started from
/// any threads at once, so its start-up closure must allow concurrent calls.
template <class Value, class Error = std::exception_ptr>
class SignalProducer {
 public:
  using Observer = SignalObserver<Value, Error>;
  using Handlers = SignalHandlers<Value, Error>;
  using StartUp = std::function<void(Observer, Lifetime)>;

  /// A producer that runs `startUp` on each start. With an empty closure every start
  /// completes at once.
  explicit SignalProducer(StartUp startUp) : startUp_(std::move(startUp)) {}

  /// A producer that runs `action` on each start, on the starting thread: the value it
  /// returns is sent and followed by completed; an exception it throws is the failure.
  static SignalProducer attempt(std::function<Value()> action)
    requires std::same_as<Error, std::exception_ptr>
  {
    return SignalProducer([action = std::move(action)](Observer observer, Lifetime) {
      std::optional<Value> value;
      try {
        value.emplace(action());
      } catch (...) {
        observer.sendFailed(std::current_exception());
        return;
      }
      observer.send(std::move(*value));
      observer.sendCompleted();
    });
  }

  /// Starts a new subscription: runs the start-up closure on this thread before returning.
  /// When the closure throws, an any-error producer fails with that exception; other
  /// producers dispose the subscription and let the exception through.
  Disposable start(Handlers handlers = {}) const {
    auto [lifetime, token] = Lifetime::make();
    auto state = std::make_shared<State>(std::move(handlers), std::move(token));
    const Observer observer(state);
    if (!startUp_) {
      observer.sendCompleted();
      return Disposable(state);
    }
    try {
      startUp_(observer, lifetime);
    } catch (...) {
      if constexpr (std::is_same_v<Error, std::exception_ptr>) {
        observer.sendFailed(std::current_exception());
      } else {
        state->dispose();
        throw;
      }
    }
    return Disposable(state);
  }

  /// The same producer, with its events delivered to the subscriber as jobs on `scheduler`,
  /// in the order they were sent. Disposing stops the work at once and delivers nothing
  /// that has not yet reached the subscriber.
  SignalProducer observeOn(QueueScheduler scheduler) const {
    return SignalProducer([source = *this, scheduler](Observer observer, Lifetime lifetime) {
      const auto later = [scheduler, observer](std::function<void(const Observer&)> send) {
        scheduler.schedule([observer, send = std::move(send)] { send(observer); });
      };
      const Disposable inner = source.start({
          .value = [later](Value value) {
            later([value = std::move(value)](const Observer& o) mutable { o.send(std::move(value)); });
          },
          .failed = [later](Error error) { later([error](const Observer& o) { o.sendFailed(error); }); },
          .completed = [later] { later([](const Observer& o) { o.sendCompleted(); }); },
          .interrupted = [later] { later([](const Observer& o) { o.sendInterrupted(); }); },
      });
      lifetime.observeEnded([inner] { inner.dispose(); });
    });
  }

  /// The same producer, with each start-up run as a job on `scheduler` instead of on the
  /// starting thread. A subscription disposed before its job runs never starts.
  SignalProducer startOn(QueueScheduler scheduler) const {
    return SignalProducer([source = *this, scheduler](Observer observer, Lifetime lifetime) {
      scheduler.schedule([source, observer, lifetime] {
        if (lifetime.hasEnded()) return;
        const Disposable inner = source.start(forwardingTo(observer));
        lifetime.observeEnded([inner] { inner.dispose(); });  // at once if it ended meanwhile
      });
    });
  }

 private:
  using State = detail::SignalState<Value, Error>;

  static Handlers forwardingTo(const Observer& observer) {
    return {
        .value = [observer](Value value) { observer.send(std::move(value)); },
        .failed = [observer](Error error) { observer.sendFailed(std::move(error)); },
        .completed = [observer] { observer.sendCompleted(); },
        .interrupted = [observer] { observer.sendInterrupted(); },
    };
  }

  StartUp startUp_;
};

}  // namespace velquist::support
VELQUIST_API_END
