#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::platform {

/// An error reported by the store: a code from the store's list and a message for people.
/// Store operations pass it on unchanged, so it is thrown and caught as it is.
///
///     SKError error(SKError::Code::storeProductNotAvailable, "not sold in this storefront");
///     error.code();  // SKError::Code::storeProductNotAvailable
///     error.what();  // "not sold in this storefront"
///
/// Thread-safety: an immutable value; copies may be used on any thread.
class SKError : public std::runtime_error {
 public:
  /// The store's error codes with their integer values; values not listed are
  /// representable too (`static_cast<SKError::Code>(99)`).
  enum class Code : std::int64_t {
    unknown = 0,
    clientInvalid = 1,
    paymentCancelled = 2,
    paymentInvalid = 3,
    paymentNotAllowed = 4,
    storeProductNotAvailable = 5,
    cloudServicePermissionDenied = 6,
    cloudServiceNetworkConnectionFailed = 7,
    cloudServiceRevoked = 8,
    privacyAcknowledgementRequired = 9,
    unauthorizedRequestData = 10,
    invalidOfferIdentifier = 11,
    invalidSignature = 12,
    missingOfferParams = 13,
    invalidOfferPrice = 14,
  };

  SKError(Code code, const std::string& message) : std::runtime_error(message), code_(code) {}

  Code code() const noexcept { return code_; }

  /// What every store operation reports while no store backend is set:
  /// code `unknown`, message "no store backend is configured".
  static SKError noStoreBackend() { return SKError(Code::unknown, "no store backend is configured"); }

  friend bool operator==(const SKError& lhs, const SKError& rhs) {
    return lhs.code_ == rhs.code_ && std::string_view(lhs.what()) == std::string_view(rhs.what());
  }

 private:
  Code code_;
};

}  // namespace velquist::platform
VELQUIST_API_END
