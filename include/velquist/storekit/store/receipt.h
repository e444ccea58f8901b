#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <exception>
#include <optional>
#include <vector>

#include "velquist/support/signal_producer.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The store receipt of the running application, as raw bytes for the host's validation
/// server. Only a namespace: it cannot be made.
class Receipt {
 public:
  Receipt() = delete;

  /// The receipt file at the main bundle's `appStoreReceiptURL`, read afresh on every start,
  /// on the starting thread: one value then completed. The value is absent when the bundle
  /// has no receipt location or no file is there (no purchase yet, a development build),
  /// and otherwise the file's bytes, untouched (empty for an empty file). A file that is
  /// there but cannot be read (a directory, no permission, ...) fails the producer with a
  /// `std::filesystem::filesystem_error` naming the path and the reason.
  ///
  ///     Receipt::receiptData().start({.value = [](auto bytes) { if (bytes) upload(*bytes); }});
  ///
  /// Thread-safety: may be started from any thread; a caller that must not block (the main
  /// thread) starts it with `startOn` a background scheduler.
  static support::SignalProducer<std::optional<std::vector<std::uint8_t>>, std::exception_ptr> receiptData();
};

}  // namespace velquist::storekit
VELQUIST_API_END
