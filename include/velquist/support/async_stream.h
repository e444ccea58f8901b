#pragma once

#include "velquist/export.h"
#include <concepts>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>

#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::support {

namespace detail {

// What a stream and its continuations share: the buffer, whether the stream has ended,
// the error it ended with, and the handler to run when it ends.
template <class T>
class StreamState {
 public:
  bool yield(T value) VELQUIST_EXCLUDES(mutex_) {
    {
      LockGuard lock(mutex_);
      if (terminated_) return false;
      buffer_.push_back(std::move(value));
    }
    available_.notify_all();
    return true;
  }

  // Ends the stream. A finished stream still hands out what it buffered; a cancelled one
  // drops it. Only the first call counts.
  void terminate(std::exception_ptr error, bool cancelled) VELQUIST_EXCLUDES(mutex_) {
    std::function<void()> handler;
    {
      LockGuard lock(mutex_);
      if (terminated_) return;
      terminated_ = true;
      error_ = std::move(error);
      if (cancelled) buffer_.clear();
      handler = std::exchange(handler_, nullptr);
    }
    available_.notify_all();
    if (handler) handler();
  }

  void onTermination(std::function<void()> handler) VELQUIST_EXCLUDES(mutex_) {
    {
      LockGuard lock(mutex_);
      if (!terminated_) {
        handler_ = std::move(handler);
        return;
      }
    }
    if (handler) handler();
  }

  std::optional<T> next(std::stop_token stop) VELQUIST_EXCLUDES(mutex_) {
    std::exception_ptr error;
    {
      LockGuard lock(mutex_);
      const bool ready = available_.wait(
          mutex_, stop, [this]() VELQUIST_REQUIRES(mutex_) { return !buffer_.empty() || terminated_; });
      if (!buffer_.empty()) {
        std::optional<T> value(std::move(buffer_.front()));
        buffer_.pop_front();
        return value;
      }
      if (ready) error = std::exchange(error_, nullptr);  // rethrown once, then plain ends
    }
    if (error) std::rethrow_exception(error);
    if (stop.stop_requested()) terminate(nullptr, true);
    return std::nullopt;
  }

 private:
  Mutex mutex_;
  std::condition_variable_any available_;
  std::deque<T> buffer_ VELQUIST_GUARDED_BY(mutex_);
  bool terminated_ VELQUIST_GUARDED_BY(mutex_) = false;
  std::exception_ptr error_ VELQUIST_GUARDED_BY(mutex_);
  std::function<void()> handler_ VELQUIST_GUARDED_BY(mutex_);
};

}  // namespace detail

/// An asynchronous sequence of values with an unbounded buffer: producers push values
/// through a `Continuation`, one consumer takes them with the blocking `next`.
///
/// The stream ends once: when a producer calls `finish` (values already buffered are
/// still handed out, then `next` gives nothing), when the consumer's stop token fires
/// while it waits in `next`, or when the stream object is destroyed. Either way the
/// termination handler runs once, on the thread that ended the stream, and later
/// `yield`s are dropped. When the last copy of the continuation is destroyed without
/// `finish`, the stream finishes, so a consumer never waits for a producer that is gone.
/// A producer may also finish with an exception, which `next` rethrows (once) after the
/// buffered values; this is the throwing form of the stream.
///
///     AsyncStream<int> stream([](AsyncStream<int>::Continuation continuation) {
///       continuation.yield(1);
///       continuation.finish();
///     });
///     stream.next();  // 1
///     stream.next();  // nothing
///
/// Thread-safety: continuations may be copied and used from any threads at once; the
/// stream itself has one consumer (`next` from one thread at a time). No thread is kept
/// waiting for the stream except a consumer inside `next`.
template <class T>
class AsyncStream {
 public:
  /// The producing side; cheap to copy, all copies feed the same stream.
  class Continuation {
   public:
    /// Buffers a value for the consumer; false (and the value dropped) when the stream
    /// has already ended.
    bool yield(T value) const { return producer_->state->yield(std::move(value)); }
    /// Ends the stream normally, or with `error` when one is given.
    void finish(std::exception_ptr error = nullptr) const { producer_->state->terminate(std::move(error), false); }
    /// Sets what runs once when the stream ends; runs it at once if it already has.
    void onTermination(std::function<void()> handler) const {
      producer_->state->onTermination(std::move(handler));
    }

   private:
    friend class AsyncStream;
    // Finishes the stream when the last continuation goes away.
    struct Producer {
      explicit Producer(std::shared_ptr<detail::StreamState<T>> shared) : state(std::move(shared)) {}
      ~Producer() { state->terminate(nullptr, false); }
      Producer(const Producer&) = delete;
      Producer& operator=(const Producer&) = delete;
      std::shared_ptr<detail::StreamState<T>> state;
    };
    explicit Continuation(std::shared_ptr<detail::StreamState<T>> state)
        : producer_(std::make_shared<Producer>(std::move(state))) {}
    std::shared_ptr<Producer> producer_;
  };

  /// Makes the stream and calls `build` with its continuation at once, on this thread.
  template <class Build>
    requires std::invocable<Build, Continuation>
  explicit AsyncStream(Build&& build) : state_(std::make_shared<detail::StreamState<T>>()) {
    std::forward<Build>(build)(Continuation(state_));
  }
  AsyncStream(AsyncStream&&) noexcept = default;
  AsyncStream& operator=(AsyncStream&& other) noexcept {
    if (this != &other) {
      end();
      state_ = std::move(other.state_);
    }
    return *this;
  }
  AsyncStream(const AsyncStream&) = delete;
  AsyncStream& operator=(const AsyncStream&) = delete;
  ~AsyncStream() { end(); }

  /// The next value, waiting until one is buffered or the stream ends. Nothing once the
  /// stream has ended and its buffer is empty, or when `stop` fires while waiting (that
  /// ends the stream). Rethrows the error the stream was finished with, once.
  /// A moved-from stream gives nothing.
  std::optional<T> next(std::stop_token stop = {}) {
    if (!state_) return std::nullopt;
    return state_->next(std::move(stop));
  }

 private:
  void end() {
    if (state_) state_->terminate(nullptr, true);
  }
  std::shared_ptr<detail::StreamState<T>> state_;
};

}  // namespace velquist::support
VELQUIST_API_END
