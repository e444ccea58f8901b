#pragma once

#include "velquist/export.h"
#include <cstddef>
#include <functional>

VELQUIST_API_BEGIN
namespace velquist::platform {

/// The UI framework's environment values, reduced to what the library uses: the review
/// action of systems 16.0 and later, which asks for the rating prompt without naming a
/// scene. A default-made set is what the library uses; it is not taken from any view.
/// The stand-in action counts its calls and passes each to a handler the host installs.
///
///     EnvironmentValues().requestReview();
///     EnvironmentValues::requestReviewCount();  // 1
///
/// Thread-safety: all members may be called from any thread; the handler is called on
/// the thread that asked, outside any lock (the library asks on the main actor).
struct EnvironmentValues {
  struct RequestReviewAction {
    void operator()() const;
  };
  RequestReviewAction requestReview;

  /// How many times the review action was called so far.
  static std::size_t requestReviewCount();
  /// What the review action does besides being counted; nothing by default.
  static void setRequestReviewHandler(std::function<void()> handler);
  /// Resets the count and removes the handler.
  static void reset();
};

}  // namespace velquist::platform
VELQUIST_API_END
