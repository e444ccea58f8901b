#include "velquist/support/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace velquist::support {

void fatalError(std::string_view message) {
  std::fprintf(stderr, "Fatal error: %.*s\n", static_cast<int>(message.size()), message.data());
  std::fflush(stderr);
  std::abort();
}

}  // namespace velquist::support
