#pragma once

#include "velquist/export.h"
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "velquist/foundation/coding_error.h"
#include "velquist/foundation/decimal.h"
#include "velquist/foundation/json.h"
#include "velquist/foundation/locale.h"

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// The keyed serial form of a type: specialise it with
///
///     static void encode(Encoder& encoder, const T& value);
///     static T decode(const Decoder& decoder);
///
/// A record opens `encoder.keyed()` and writes its fields under their names in declaration
/// order; it reads them back through `decoder.keyed()`. Built in: bool, std::string, every
/// integer type, Decimal, Locale, JsonValue, std::vector<T> and std::optional<T>.
///
///     template <> struct Coding<Period> {
///       static void encode(Encoder& encoder, const Period& period) {
///         KeyedEncoder keyed = encoder.keyed();
///         keyed.encode("unit", period.unit);
///         keyed.encode("value", period.value);
///       }
///       static Period decode(const Decoder& decoder) {
///         const KeyedDecoder keyed = decoder.keyed();
///         return {keyed.decode<Unit>("unit"), keyed.decode<int>("value")};
///       }
///     };
///
///     encodeToJsonText(Period{Unit::week, 1})  ->  {"unit":1,"value":1}
template <class T>
struct Coding;

class KeyedEncoder;
class UnkeyedEncoder;
class KeyedDecoder;

// ---------------------------------------------------------------------------------------
// Encoding

/// Writes one value, at a coding path, into a JsonValue. Coding<T>::encode receives one and
/// writes exactly one thing into it: a keyed object, an array or a single value.
///
/// Not thread-safe; an encoder lives for one `encode` call. The containers it hands out
/// refer to it and must not outlive it.
class Encoder {
 public:
  explicit Encoder(std::vector<CodingKey> codingPath = {}) : path_(std::move(codingPath)) {}

  /// Makes the value an object (keeping one made by an earlier call) and returns a writer
  /// for its members.
  KeyedEncoder keyed();
  /// Makes the value an array (keeping one made by an earlier call) and returns a writer
  /// for its elements.
  UnkeyedEncoder unkeyed();

  template <class T>
  void encode(const T& value) {
    Coding<T>::encode(*this, value);
  }
  void encodeNil() { value_ = JsonValue(); }
  /// Writes an already-built JSON value.
  void encodeJson(JsonValue value) { value_ = std::move(value); }

  const std::vector<CodingKey>& codingPath() const { return path_; }
  /// The error for a value this encoder refuses, at its path.
  EncodingError invalidValue(std::string description) const { return EncodingError(path_, std::move(description)); }

  /// The value written so far.
  const JsonValue& value() const { return value_; }
  JsonValue takeValue() { return std::move(value_); }

 private:
  friend class KeyedEncoder;
  friend class UnkeyedEncoder;

  std::vector<CodingKey> path_;
  JsonValue value_;
};

/// Writes the members of an object, in call order. Writing a key a second time replaces
/// its value in place.
///
/// Not thread-safe; valid while the Encoder that made it lives.
class KeyedEncoder {
 public:
  template <class T>
  void encode(std::string_view key, const T& value) {
    Encoder child(childPath(key));
    child.encode(value);
    set(key, child.takeValue());
  }

  /// Writes the key only when the value is present; an absent value writes nothing (never
  /// null).
  template <class T>
  void encodeIfPresent(std::string_view key, const std::optional<T>& value) {
    if (value) encode(key, *value);
  }

  void encodeNil(std::string_view key) { set(key, JsonValue()); }

  const std::vector<CodingKey>& codingPath() const { return encoder_->path_; }

 private:
  friend class Encoder;
  explicit KeyedEncoder(Encoder& encoder) : encoder_(&encoder) {}

  std::vector<CodingKey> childPath(std::string_view key) const;
  void set(std::string_view key, JsonValue value);

  Encoder* encoder_;
};

/// Appends the elements of an array.
///
/// Not thread-safe; valid while the Encoder that made it lives.
class UnkeyedEncoder {
 public:
  template <class T>
  void encode(const T& value) {
    Encoder child(childPath());
    child.encode(value);
    append(child.takeValue());
  }

  const std::vector<CodingKey>& codingPath() const { return encoder_->path_; }

 private:
  friend class Encoder;
  explicit UnkeyedEncoder(Encoder& encoder) : encoder_(&encoder) {}

  std::vector<CodingKey> childPath() const;
  void append(JsonValue value);

  Encoder* encoder_;
};

// ---------------------------------------------------------------------------------------
// Decoding

/// Reads one JSON value at a coding path. Every error it raises carries that path.
///
/// Refers to the JsonValue it reads, which must outlive it. Safe to use from several
/// threads at once (it never changes).
class Decoder {
 public:
  explicit Decoder(const JsonValue& value, std::vector<CodingKey> codingPath = {})
      : value_(&value), path_(std::move(codingPath)) {}
  Decoder(JsonValue&&, std::vector<CodingKey> = {}) = delete;  // would dangle

  /// The members of an object. Throws valueNotFound for null, typeMismatch for any other
  /// non-object.
  KeyedDecoder keyed() const;
  /// One decoder per element of an array, at paths ending in `[i]`. Throws valueNotFound
  /// for null, typeMismatch for any other non-array.
  std::vector<Decoder> unkeyed() const;

  template <class T>
  T decode() const {
    return Coding<T>::decode(*this);
  }
  /// Whether the value is null.
  bool decodeNil() const { return value_->isNull(); }

  const JsonValue& value() const { return *value_; }
  const std::vector<CodingKey>& codingPath() const { return path_; }

  /// The value itself when it has the given kind. Throws valueNotFound ("Expected Bool value
  /// but found null instead.") for null and typeMismatch ("Expected to decode Bool but found
  /// a string instead.") for another kind; `typeName` names the type being decoded.
  const JsonValue& requireKind(JsonValue::Kind kind, std::string_view typeName) const;

  /// Errors at this decoder's path, for Coding specialisations to throw.
  DecodingError dataCorrupted(std::string description) const;
  DecodingError typeMismatch(std::string_view typeName) const;
  DecodingError valueNotFound(std::string_view typeName) const;

 private:
  const JsonValue* value_;
  std::vector<CodingKey> path_;
};

/// Reads the members of an object by key. Keys it is not asked about are ignored; for a
/// key given more than once the last occurrence counts.
///
/// Refers to the JsonValue it reads, which must outlive it. Safe to use from several
/// threads at once.
class KeyedDecoder {
 public:
  bool contains(std::string_view key) const { return object_->find(key) != nullptr; }

  /// A required value. Throws keyNotFound (at this object's path) when the key is missing,
  /// valueNotFound when it holds null (unless T is an optional), and whatever decoding T
  /// throws.
  template <class T>
  T decode(std::string_view key) const {
    return nested(key).template decode<T>();
  }

  /// An optional value: absent when the key is missing or holds null.
  template <class T>
  std::optional<T> decodeIfPresent(std::string_view key) const {
    const JsonValue* value = object_->find(key);
    if (value == nullptr || value->isNull()) return std::nullopt;
    return Decoder(*value, childPath(key)).template decode<T>();
  }

  /// The decoder of one member. Throws keyNotFound when the key is missing.
  Decoder nested(std::string_view key) const;

  const std::vector<CodingKey>& codingPath() const { return path_; }

 private:
  friend class Decoder;
  KeyedDecoder(const JsonValue& object, std::vector<CodingKey> codingPath)
      : object_(&object), path_(std::move(codingPath)) {}

  std::vector<CodingKey> childPath(std::string_view key) const;

  const JsonValue* object_;
  std::vector<CodingKey> path_;
};

// ---------------------------------------------------------------------------------------
// Whole documents

template <class T>
JsonValue encodeToJson(const T& value) {
  Encoder encoder;
  encoder.encode(value);
  return encoder.takeValue();
}

template <class T>
std::string encodeToJsonText(const T& value, const JsonWriteOptions& options = {}) {
  return toJsonText(encodeToJson(value), options);
}

template <class T>
T decodeFromJson(const JsonValue& json) {
  return Decoder(json).decode<T>();
}

/// Parses the text and decodes it; malformed JSON throws DecodingError as `parseJson` does.
template <class T>
T decodeFromJsonText(std::string_view text, const JsonReadOptions& options = {}) {
  const JsonValue json = parseJson(text, options);
  return Decoder(json).decode<T>();
}

// ---------------------------------------------------------------------------------------
// Enumerations with raw values

namespace detail {
std::string rawValueText(const std::string& raw);
std::string rawValueText(std::int64_t raw);
std::string rawValueText(std::uint64_t raw);
}  // namespace detail

/// Reads an enumeration written as its raw value (text or an integer): decodes `Raw`, then
/// looks it up with `fromRawValue` (any callable from Raw to std::optional<E>). An unknown
/// raw value is dataCorrupted at the decoder's path:
///
///     "Cannot initialize PaymentMode from invalid String value freeTrial"
///     "Cannot initialize Unit from invalid Int value 4"
template <class Raw, class Lookup>
auto decodeRawValue(const Decoder& decoder, std::string_view typeName, Lookup&& fromRawValue) ->
    typename std::invoke_result_t<Lookup&, const Raw&>::value_type {
  const Raw raw = decoder.decode<Raw>();
  if (auto value = fromRawValue(raw)) return *value;
  std::string description = "Cannot initialize " + std::string(typeName) + " from invalid ";
  if constexpr (std::is_same_v<Raw, std::string>) {
    description += "String value " + detail::rawValueText(raw);
  } else {
    static_assert(std::is_integral_v<Raw>, "raw values are text or integers");
    if constexpr (std::is_signed_v<Raw>) {
      description += "Int value " + detail::rawValueText(static_cast<std::int64_t>(raw));
    } else {
      description += "Int value " + detail::rawValueText(static_cast<std::uint64_t>(raw));
    }
  }
  throw decoder.dataCorrupted(std::move(description));
}

/// Writes an enumeration as its raw value; the counterpart of `decodeRawValue`.
template <class Raw>
void encodeRawValue(Encoder& encoder, const Raw& raw) {
  encoder.encode(raw);
}

// ---------------------------------------------------------------------------------------
// Built-in serial forms

template <>
struct Coding<bool> {
  static void encode(Encoder& encoder, bool value);
  static bool decode(const Decoder& decoder);
};

template <>
struct Coding<std::string> {
  static void encode(Encoder& encoder, const std::string& value);
  static std::string decode(const Decoder& decoder);
};

namespace detail {
// Integers are read from the number's exact text: `1.0` and `1e2` are integers, `1.5`,
// `1e-1` and anything outside [min, max] are dataCorrupted ("Parsed JSON number <1.5> does
// not fit in Int64.").
std::int64_t decodeSigned(const Decoder& decoder, std::int64_t min, std::int64_t max, std::string_view typeName);
std::uint64_t decodeUnsigned(const Decoder& decoder, std::uint64_t max, std::string_view typeName);

template <class T>
constexpr std::string_view integerTypeName() {
  constexpr bool isSigned = std::is_signed_v<T>;
  switch (sizeof(T)) {
    case 1: return isSigned ? "Int8" : "UInt8";
    case 2: return isSigned ? "Int16" : "UInt16";
    case 4: return isSigned ? "Int32" : "UInt32";
    default: return isSigned ? "Int64" : "UInt64";
  }
}

template <class T>
concept CodableInteger = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                         !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                         !std::same_as<T, char16_t> && !std::same_as<T, char32_t> && sizeof(T) <= 8;
}  // namespace detail

/// Integers of every width, written as JSON integers; reading is range-checked and reports
/// the platform's type names (Int8 ... UInt64).
template <detail::CodableInteger T>
struct Coding<T> {
  static void encode(Encoder& encoder, T value) { encoder.encodeJson(JsonValue::number(value)); }
  static T decode(const Decoder& decoder) {
    constexpr std::string_view name = detail::integerTypeName<T>();
    if constexpr (std::is_signed_v<T>) {
      return static_cast<T>(
          detail::decodeSigned(decoder, std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), name));
    } else {
      return static_cast<T>(detail::decodeUnsigned(decoder, std::numeric_limits<T>::max(), name));
    }
  }
};

/// A JSON number whose text is the decimal's exact description (`4.99`); read from the
/// number's exact text, never through a double. Writing NaN is refused (EncodingError).
template <>
struct Coding<Decimal> {
  static void encode(Encoder& encoder, const Decimal& value);
  static Decimal decode(const Decoder& decoder);
};

/// The locale's identifier as text (`en_PT@currency=EUR`).
template <>
struct Coding<Locale> {
  static void encode(Encoder& encoder, const Locale& value);
  static Locale decode(const Decoder& decoder);
};

/// Any JSON value, unchanged.
template <>
struct Coding<JsonValue> {
  static void encode(Encoder& encoder, const JsonValue& value) { encoder.encodeJson(value); }
  static JsonValue decode(const Decoder& decoder) { return decoder.value(); }
};

/// A JSON array; element i is at path `[i]`.
template <class T>
struct Coding<std::vector<T>> {
  static void encode(Encoder& encoder, const std::vector<T>& values) {
    UnkeyedEncoder elements = encoder.unkeyed();
    for (const T& value : values) elements.encode(value);
  }
  static std::vector<T> decode(const Decoder& decoder) {
    std::vector<T> values;
    for (const Decoder& element : decoder.unkeyed()) values.push_back(element.decode<T>());
    return values;
  }
};

/// null when absent. (Record fields use `encodeIfPresent`, which omits the key instead.)
template <class T>
struct Coding<std::optional<T>> {
  static void encode(Encoder& encoder, const std::optional<T>& value) {
    if (value) {
      encoder.encode(*value);
    } else {
      encoder.encodeNil();
    }
  }
  static std::optional<T> decode(const Decoder& decoder) {
    if (decoder.decodeNil()) return std::nullopt;
    return decoder.decode<T>();
  }
};

}  // namespace velquist::foundation
VELQUIST_API_END
