#include "velquist/platform/ui_application.h"

#include <algorithm>
#include <utility>

namespace velquist::platform {

UIApplication& UIApplication::shared() {
  static UIApplication application;
  return application;
}

std::vector<std::shared_ptr<UIScene>> UIApplication::connectedScenes() const {
  support::LockGuard lock(mutex_);
  return connectedScenes_;
}

void UIApplication::setConnectedScenes(std::vector<std::shared_ptr<UIScene>> scenes) {
  std::erase(scenes, nullptr);
  support::LockGuard lock(mutex_);
  connectedScenes_ = std::move(scenes);
}

}  // namespace velquist::platform
