#pragma once

#include "velquist/export.h"
#include <functional>
#include <memory>
#include <vector>

#include "velquist/platform/ui_application.h"

VELQUIST_API_BEGIN
namespace velquist::platform {

/// The store's review controller: asks the system to show its rating prompt in a window
/// scene (the system alone decides whether it appears). This stand-in records every
/// request and passes it to a handler the host installs to reach its real UI.
///
///     SKStoreReviewController::requestReview(scene);
///     SKStoreReviewController::requests();  // {scene}
///
/// Thread-safety: all members may be called from any thread; the handler is called on
/// the thread that asked, outside any lock (the library asks on the main actor).
class SKStoreReviewController {
 public:
  using Handler = std::function<void(const std::shared_ptr<UIWindowScene>& scene)>;

  SKStoreReviewController() = delete;

  /// Asks for the prompt in `scene`; a request without a scene is ignored.
  static void requestReview(std::shared_ptr<UIWindowScene> scene);

  /// The scenes asked for so far, oldest first.
  static std::vector<std::shared_ptr<UIWindowScene>> requests();
  /// What a request does besides being recorded; none by default.
  static void setHandler(Handler handler);
  /// Forgets the recorded requests and the handler.
  static void reset();
};

}  // namespace velquist::platform
VELQUIST_API_END
