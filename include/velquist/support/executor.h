#pragma once

#include "velquist/export.h"
#include <functional>

VELQUIST_API_BEGIN
namespace velquist::support {

/// Somewhere jobs run: a queue that a thread drains, a thread pool, ...
///
/// Thread-safety: `enqueue` may be called from any thread.
class Executor {
 public:
  virtual ~Executor() = default;
  /// Arranges for `job` to run later; never runs it before returning.
  virtual void enqueue(std::function<void()> job) = 0;
};

}  // namespace velquist::support
VELQUIST_API_END
