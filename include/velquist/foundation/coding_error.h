#pragma once

#include "velquist/export.h"
#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// One step of a coding path: a key of a keyed object or the position of an array element.
///
/// A value type; distinct objects may be used from different threads freely.
struct CodingKey {
  /// The key's name; for an array element "Index 2".
  std::string stringValue;
  /// The element's position for an array element; absent for an object key.
  std::optional<std::size_t> intValue;

  static CodingKey key(std::string_view name) { return {std::string(name), std::nullopt}; }
  static CodingKey index(std::size_t position) {
    return {"Index " + std::to_string(position), position};
  }

  friend bool operator==(const CodingKey&, const CodingKey&) = default;
};

/// A coding path as one readable text: keys joined by dots, array positions in brackets.
///
///     {key("subscription"), key("promotionalOffers"), index(2), key("paymentMode")}
///       ->  "subscription.promotionalOffers[2].paymentMode"
///
/// The empty path gives "".
std::string codingPathText(const std::vector<CodingKey>& path);

/// Why a value could not be read: malformed JSON, or JSON whose shape does not match the
/// type being decoded. Carries the kind of fault, the coding path of the value at fault and
/// a readable description.
///
/// Immutable; copies share their contents, so copying never throws. Safe to read from any
/// thread.
///
///     what() -> "keyNotFound at subscriptionInfo: No value associated with key
///                \"isEligibleForIntroOffer\" (\"isEligibleForIntroOffer\")."
class DecodingError : public std::exception {
 public:
  enum class Kind {
    /// A required key is missing; the path is the path of the object lacking it.
    keyNotFound,
    /// A value has the wrong JSON type (a number where text belongs).
    typeMismatch,
    /// A null stands where a value is required.
    valueNotFound,
    /// The value has the right type but cannot be used (an unknown raw value, an integer out
    /// of range), or the text is not valid JSON.
    dataCorrupted,
  };

  DecodingError(Kind kind, std::vector<CodingKey> codingPath, std::string debugDescription);

  Kind kind() const noexcept { return details_->kind; }
  const std::vector<CodingKey>& codingPath() const noexcept { return details_->codingPath; }
  std::string codingPathText() const { return foundation::codingPathText(details_->codingPath); }
  const std::string& debugDescription() const noexcept { return details_->debugDescription; }

  /// "<kind> at <path>: <description>", or "<kind> at the top level: <description>" for the
  /// empty path.
  const char* what() const noexcept override { return details_->message.c_str(); }

 private:
  struct Details {
    Kind kind;
    std::vector<CodingKey> codingPath;
    std::string debugDescription;
    std::string message;
  };
  std::shared_ptr<const Details> details_;
};

/// The name of a decoding error kind, spelled as the enumerator: "keyNotFound".
std::string_view kindName(DecodingError::Kind kind);

/// Why a value could not be written: the encoder refuses it (a decimal that is not a number
/// has no JSON form). Carries the coding path of the refused value and a description.
///
/// Immutable; copies share their contents. Safe to read from any thread.
///
///     what() -> "invalidValue at price: Decimal NaN cannot be written as a JSON number."
class EncodingError : public std::exception {
 public:
  EncodingError(std::vector<CodingKey> codingPath, std::string debugDescription);

  const std::vector<CodingKey>& codingPath() const noexcept { return details_->codingPath; }
  std::string codingPathText() const { return foundation::codingPathText(details_->codingPath); }
  const std::string& debugDescription() const noexcept { return details_->debugDescription; }
  const char* what() const noexcept override { return details_->message.c_str(); }

 private:
  struct Details {
    std::vector<CodingKey> codingPath;
    std::string debugDescription;
    std::string message;
  };
  std::shared_ptr<const Details> details_;
};

}  // namespace velquist::foundation
VELQUIST_API_END
