#pragma once

#include "velquist/export.h"
#include <functional>
#include <stop_token>

#include "velquist/support/dependency_values.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// Asks the system to show its rating prompt. The result says whether a prompt was
/// requested from the system, not whether one appeared (the system decides that).
/// Features take the action from the dependency registry, so tests can put their own in.
///
///     bool asked = requestReview()();  // true when a prompt was requested
///
/// The live action (what `requestReview()` gives in the live and preview contexts) works
/// on the main queue, which the host must be running: on systems 16.0 and later it calls
/// the environment's review action; before that it asks the store review controller in
/// the first connected scene that is a foreground-active window scene, and returns false
/// when there is none. Called on the main actor itself, it runs the queued main-queue
/// work (its own included) before returning. The test value reports the test failure
/// "Unimplemented: @Dependency(\.requestReview)" and returns false.
///
/// Thread-safety: an action may be called from any thread, concurrently.
struct RequestReviewAction {
  /// Does the work; blocks until it is done or `stop` fires. May be empty.
  std::function<bool(std::stop_token)> handler;

  /// Runs the handler and returns its result; false when there is no handler or
  /// `stop` ended the wait first.
  bool operator()(std::stop_token stop = {}) const;
};

/// The registry key of the review action. Each value is made once, on first use.
struct RequestReviewKey {
  using Value = RequestReviewAction;
  static const RequestReviewAction& liveValue();
  static const RequestReviewAction& testValue();
  /// The live value itself.
  static const RequestReviewAction& previewValue();
};

/// The review action in `values`: its entry when replaced, else the value for the active
/// context.
RequestReviewAction requestReview(const support::DependencyValues& values = support::DependencyValues::current());
/// Replaces the review action in `values`.
void setRequestReview(support::DependencyValues& values, RequestReviewAction action);

}  // namespace velquist::storekit
VELQUIST_API_END
