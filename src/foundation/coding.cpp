#include "velquist/foundation/coding.h"

#include <cctype>

namespace velquist::foundation {

namespace {

// How the platform's decoder names a JSON value it did not expect.
std::string_view foundDescription(JsonValue::Kind kind) {
  switch (kind) {
    case JsonValue::Kind::null: return "null";
    case JsonValue::Kind::boolean: return "a bool";
    case JsonValue::Kind::number: return "a number";
    case JsonValue::Kind::string: return "a string";
    case JsonValue::Kind::array: return "an array";
    case JsonValue::Kind::object: return "a dictionary";
  }
  return "an unknown value";
}

std::vector<CodingKey> appended(std::vector<CodingKey> path, CodingKey key) {
  path.push_back(std::move(key));
  return path;
}

// The magnitude and sign of a JSON number's text when it is an integer whose magnitude
// fits 64 bits; absent when it has a fractional part or is larger.
struct IntegerValue {
  bool isNegative = false;
  std::uint64_t magnitude = 0;
};

std::optional<IntegerValue> integerValue(std::string_view text) {
  IntegerValue result;
  std::size_t i = 0;
  if (i < text.size() && text[i] == '-') {
    result.isNegative = true;
    ++i;
  }
  // All significant digits, and the power of ten that scales them.
  std::string digits;
  std::int64_t exponent = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) digits += text[i];
  if (i < text.size() && text[i] == '.') {
    for (++i; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
      digits += text[i];
      --exponent;
    }
  }
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    const bool negativeExponent = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    // Saturates far beyond any exponent that could still give a 64-bit integer.
    constexpr std::int64_t saturation = 1'000'000'000'000;
    std::int64_t written = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
      if (written < saturation) written = written * 10 + (text[i] - '0');
    }
    exponent += negativeExponent ? -written : written;
  }

  const auto firstSignificant = digits.find_first_not_of('0');
  if (firstSignificant == std::string::npos) return result;  // zero, however written
  digits.erase(0, firstSignificant);
  while (digits.back() == '0') {
    digits.pop_back();
    ++exponent;
  }
  if (exponent < 0) return std::nullopt;  // a fractional part remains
  if (static_cast<std::int64_t>(digits.size()) + exponent > 20) return std::nullopt;

  std::uint64_t magnitude = 0;
  for (char digit : digits) {
    if (__builtin_mul_overflow(magnitude, 10U, &magnitude) ||
        __builtin_add_overflow(magnitude, static_cast<std::uint64_t>(digit - '0'), &magnitude)) {
      return std::nullopt;
    }
  }
  for (std::int64_t k = 0; k < exponent; ++k) {
    if (__builtin_mul_overflow(magnitude, 10U, &magnitude)) return std::nullopt;
  }
  result.magnitude = magnitude;
  return result;
}

DecodingError numberDoesNotFit(const Decoder& decoder, std::string_view typeName) {
  return decoder.dataCorrupted("Parsed JSON number <" + decoder.value().numberText() + "> does not fit in " +
                               std::string(typeName) + ".");
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Encoder

KeyedEncoder Encoder::keyed() {
  if (value_.kind() != JsonValue::Kind::object) value_ = JsonValue(JsonValue::Object{});
  return KeyedEncoder(*this);
}

UnkeyedEncoder Encoder::unkeyed() {
  if (value_.kind() != JsonValue::Kind::array) value_ = JsonValue(JsonValue::Array{});
  return UnkeyedEncoder(*this);
}

std::vector<CodingKey> KeyedEncoder::childPath(std::string_view key) const {
  return appended(encoder_->path_, CodingKey::key(key));
}

void KeyedEncoder::set(std::string_view key, JsonValue value) {
  JsonValue::Object& members = encoder_->value_.objectValue();
  for (auto& member : members) {
    if (member.first == key) {
      member.second = std::move(value);
      return;
    }
  }
  members.emplace_back(std::string(key), std::move(value));
}

std::vector<CodingKey> UnkeyedEncoder::childPath() const {
  return appended(encoder_->path_, CodingKey::index(encoder_->value_.arrayValue().size()));
}

void UnkeyedEncoder::append(JsonValue value) { encoder_->value_.arrayValue().push_back(std::move(value)); }

// ---------------------------------------------------------------------------------------
// Decoder

KeyedDecoder Decoder::keyed() const {
  if (value_->isNull()) {
    throw DecodingError(DecodingError::Kind::valueNotFound, path_,
                        "Cannot get keyed decoding container -- found null value instead.");
  }
  if (value_->kind() != JsonValue::Kind::object) throw typeMismatch("Dictionary<String, Any>");
  return KeyedDecoder(*value_, path_);
}

std::vector<Decoder> Decoder::unkeyed() const {
  if (value_->isNull()) {
    throw DecodingError(DecodingError::Kind::valueNotFound, path_,
                        "Cannot get unkeyed decoding container -- found null value instead.");
  }
  if (value_->kind() != JsonValue::Kind::array) throw typeMismatch("Array<Any>");
  const JsonValue::Array& elements = value_->arrayValue();
  std::vector<Decoder> decoders;
  decoders.reserve(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    decoders.emplace_back(elements[i], appended(path_, CodingKey::index(i)));
  }
  return decoders;
}

const JsonValue& Decoder::requireKind(JsonValue::Kind kind, std::string_view typeName) const {
  if (value_->kind() == kind) return *value_;
  if (value_->isNull()) throw valueNotFound(typeName);
  throw typeMismatch(typeName);
}

DecodingError Decoder::dataCorrupted(std::string description) const {
  return DecodingError(DecodingError::Kind::dataCorrupted, path_, std::move(description));
}

DecodingError Decoder::typeMismatch(std::string_view typeName) const {
  return DecodingError(DecodingError::Kind::typeMismatch, path_,
                       "Expected to decode " + std::string(typeName) + " but found " +
                           std::string(foundDescription(value_->kind())) + " instead.");
}

DecodingError Decoder::valueNotFound(std::string_view typeName) const {
  return DecodingError(DecodingError::Kind::valueNotFound, path_,
                       "Expected " + std::string(typeName) + " value but found null instead.");
}

Decoder KeyedDecoder::nested(std::string_view key) const {
  const JsonValue* value = object_->find(key);
  if (value == nullptr) {
    const std::string name(key);
    throw DecodingError(DecodingError::Kind::keyNotFound, path_,
                        "No value associated with key \"" + name + "\" (\"" + name + "\").");
  }
  return Decoder(*value, childPath(key));
}

std::vector<CodingKey> KeyedDecoder::childPath(std::string_view key) const {
  return appended(path_, CodingKey::key(key));
}

// ---------------------------------------------------------------------------------------
// Built-in serial forms

namespace detail {

std::string rawValueText(const std::string& raw) { return raw; }
std::string rawValueText(std::int64_t raw) { return std::to_string(raw); }
std::string rawValueText(std::uint64_t raw) { return std::to_string(raw); }

std::int64_t decodeSigned(const Decoder& decoder, std::int64_t min, std::int64_t max, std::string_view typeName) {
  const JsonValue& value = decoder.requireKind(JsonValue::Kind::number, typeName);
  const auto integer = integerValue(value.numberText());
  if (!integer) throw numberDoesNotFit(decoder, typeName);
  // Compare magnitudes as unsigned numbers, so that min itself (-2^63) needs no negation.
  if (integer->isNegative) {
    const std::uint64_t limit = std::uint64_t{0} - static_cast<std::uint64_t>(min);
    if (integer->magnitude > limit) throw numberDoesNotFit(decoder, typeName);
    return static_cast<std::int64_t>(std::uint64_t{0} - integer->magnitude);
  }
  if (integer->magnitude > static_cast<std::uint64_t>(max)) throw numberDoesNotFit(decoder, typeName);
  return static_cast<std::int64_t>(integer->magnitude);
}

std::uint64_t decodeUnsigned(const Decoder& decoder, std::uint64_t max, std::string_view typeName) {
  const JsonValue& value = decoder.requireKind(JsonValue::Kind::number, typeName);
  const auto integer = integerValue(value.numberText());
  if (!integer || integer->magnitude > max || (integer->isNegative && integer->magnitude != 0)) {
    throw numberDoesNotFit(decoder, typeName);
  }
  return integer->magnitude;
}

}  // namespace detail

void Coding<bool>::encode(Encoder& encoder, bool value) { encoder.encodeJson(JsonValue(value)); }

bool Coding<bool>::decode(const Decoder& decoder) {
  return decoder.requireKind(JsonValue::Kind::boolean, "Bool").boolValue();
}

void Coding<std::string>::encode(Encoder& encoder, const std::string& value) { encoder.encodeJson(JsonValue(value)); }

std::string Coding<std::string>::decode(const Decoder& decoder) {
  return decoder.requireKind(JsonValue::Kind::string, "String").stringValue();
}

void Coding<Decimal>::encode(Encoder& encoder, const Decimal& value) {
  if (value.isNaN()) throw encoder.invalidValue("Decimal NaN cannot be written as a JSON number.");
  encoder.encodeJson(JsonValue::number(value.description()));
}

Decimal Coding<Decimal>::decode(const Decoder& decoder) {
  // The decimal reader takes both `e` and `E`, as JSON does.
  const std::string& text = decoder.requireKind(JsonValue::Kind::number, "Decimal").numberText();
  const std::optional<Decimal> value = Decimal::fromString(text);
  if (!value || value->isNaN()) throw numberDoesNotFit(decoder, "Decimal");
  return *value;
}

void Coding<Locale>::encode(Encoder& encoder, const Locale& value) { encoder.encodeJson(JsonValue(value.identifier())); }

Locale Coding<Locale>::decode(const Decoder& decoder) {
  return Locale(decoder.requireKind(JsonValue::Kind::string, "Locale").stringValue());
}

}  // namespace velquist::foundation
