#pragma once

#include "velquist/export.h"
#include <exception>

VELQUIST_API_BEGIN
namespace velquist::support {

/// Thrown by a blocking operation that ended because it was cancelled (its stop token
/// fired, or the work it waited for was torn down) instead of producing a result.
///
///     try { products(ids, stop); } catch (const CancellationError&) { /* gave up */ }
///
/// Thread-safety: an immutable value.
class CancellationError : public std::exception {
 public:
  const char* what() const noexcept override { return "the operation was cancelled"; }
};

}  // namespace velquist::support
VELQUIST_API_END
