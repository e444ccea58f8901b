#pragma once

#include "velquist/export.h"
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::support {

/// Stops the process on a programming error (an overflow the model forbids, a call that
/// must never happen): writes "Fatal error: <message>" to standard error and aborts.
[[noreturn]] void fatalError(std::string_view message);

}  // namespace velquist::support
VELQUIST_API_END
