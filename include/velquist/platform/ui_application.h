#pragma once

#include "velquist/export.h"
#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "velquist/support/mutex.h"

VELQUIST_API_BEGIN
namespace velquist::platform {

/// Where a scene stands in its life: not yet attached, in front and taking input, in
/// front but not taking input, or in the background.
enum class SceneActivationState { unattached, foregroundActive, foregroundInactive, background };

/// One instance of the application's user interface, as the host's UI layer reports it.
/// Scenes are compared by identity and held by `std::shared_ptr`; a scene that shows
/// windows is a `UIWindowScene`.
/// Thread-safety: the activation state may be read and changed from any thread.
class UIScene {
 public:
  explicit UIScene(std::string identifier, SceneActivationState activationState = SceneActivationState::unattached)
      : identifier_(std::move(identifier)), activationState_(activationState) {}
  virtual ~UIScene() = default;
  UIScene(const UIScene&) = delete;
  UIScene& operator=(const UIScene&) = delete;

  /// The host's name for the scene, for logs and tests.
  const std::string& identifier() const { return identifier_; }
  SceneActivationState activationState() const { return activationState_.load(); }
  void setActivationState(SceneActivationState state) { activationState_.store(state); }

 private:
  std::string identifier_;
  std::atomic<SceneActivationState> activationState_;
};

/// A scene that shows windows; the only kind a review prompt can be shown in.
class UIWindowScene final : public UIScene {
 public:
  using UIScene::UIScene;
};

/// The running application as the UI layer sees it: the scenes connected to it, in the
/// order the host gave them. The host (or a test) keeps the list current.
///
///     auto scene = std::make_shared<UIWindowScene>("main", SceneActivationState::foregroundActive);
///     UIApplication::shared().setConnectedScenes({scene});
///     UIApplication::shared().connectedScenes();  // {scene}
///
/// Thread-safety: all members may be used from any thread.
class UIApplication {
 public:
  static UIApplication& shared();

  std::vector<std::shared_ptr<UIScene>> connectedScenes() const VELQUIST_EXCLUDES(mutex_);
  /// Replaces the list; empty pointers are left out.
  void setConnectedScenes(std::vector<std::shared_ptr<UIScene>> scenes) VELQUIST_EXCLUDES(mutex_);

 private:
  UIApplication() = default;
  mutable support::Mutex mutex_;
  std::vector<std::shared_ptr<UIScene>> connectedScenes_ VELQUIST_GUARDED_BY(mutex_);
};

}  // namespace velquist::platform
VELQUIST_API_END
