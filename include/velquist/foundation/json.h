#pragma once

#include "velquist/export.h"
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "velquist/foundation/coding_error.h"

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// One JSON value: null, a boolean, a number, a string, an array or an object.
///
/// Numbers are kept as their text exactly as written (`260.3712140000000510976` stays so),
/// never passed through a double, because prices carry up to 38 significant digits. Object
/// members keep document order; a key may occur more than once and `find` answers the last
/// occurrence, as a parser that keeps only the last one would.
///
/// Equality is structural: numbers compare by their text (`1.0` differs from `1`), objects
/// member by member in order.
///
/// A value type; distinct objects may be used from different threads freely, and one object
/// may be read from several threads at once.
class JsonValue {
 public:
  enum class Kind { null, boolean, number, string, array, object };
  using Array = std::vector<JsonValue>;
  using Member = std::pair<std::string, JsonValue>;
  using Object = std::vector<Member>;

  /// null.
  JsonValue() = default;
  explicit JsonValue(bool value) : storage_(value) {}
  /// A string; the text is UTF-8.
  explicit JsonValue(std::string value) : storage_(std::move(value)) {}
  explicit JsonValue(std::string_view value) : storage_(std::string(value)) {}
  explicit JsonValue(const char* value) : storage_(std::string(value)) {}
  explicit JsonValue(Array elements) : storage_(std::move(elements)) {}
  explicit JsonValue(Object members) : storage_(std::move(members)) {}

  /// A number from its JSON text (`-12`, `4.99`, `1E5`). Throws std::invalid_argument when
  /// the text is not a JSON number, so a value always writes as valid JSON.
  static JsonValue number(std::string_view text);
  /// A number from an integer of any width.
  template <std::integral T>
    requires(!std::same_as<T, bool>)
  static JsonValue number(T value) {
    return number(std::string_view(std::to_string(value)));
  }

  Kind kind() const { return static_cast<Kind>(storage_.index()); }
  bool isNull() const { return kind() == Kind::null; }

  /// The contents of a value of the matching kind. Asking a value of another kind is a
  /// programming error and throws std::logic_error.
  bool boolValue() const;
  const std::string& numberText() const;
  const std::string& stringValue() const;
  const Array& arrayValue() const;
  Array& arrayValue();
  const Object& objectValue() const;
  Object& objectValue();

  /// The value of the last member named `key`; nullptr when there is none or this is not an
  /// object.
  const JsonValue* find(std::string_view key) const;

  friend bool operator==(const JsonValue&, const JsonValue&) = default;

 private:
  struct Number {
    std::string text;
    friend bool operator==(const Number&, const Number&) = default;
  };

  // The alternatives are in the order of Kind.
  std::variant<std::monostate, bool, Number, std::string, Array, Object> storage_;
};

/// The name of a kind as readers know it: "null", "boolean", "number", "string", "array",
/// "object".
std::string_view kindName(JsonValue::Kind kind);

/// How `parseJson` reads text.
struct JsonReadOptions {
  /// Whether the top-level value may be something other than an object (a number, a string,
  /// an array...). Payloads that must be a keyed record turn this off.
  bool allowFragments = true;
  /// Arrays and objects nested deeper than this are rejected rather than read.
  std::size_t maxDepth = 512;
};

/// Reads one JSON document (RFC 8259: strict UTF-8, no comments, nothing after the value).
///
/// Throws DecodingError of kind dataCorrupted with an empty coding path on malformed text,
/// with a description giving the byte position and the reason:
///
///     parseJson("[1, tru]")  ->  "The given data was not valid JSON: syntax error while
///                                 parsing value - invalid literal; last read: '1, tru]'
///                                 (at byte 8)."
///
/// Any bytes at all are safe to pass in. The integer `-0` reads as the number `0`.
JsonValue parseJson(std::string_view text, const JsonReadOptions& options = {});

/// How `toJsonText` writes a value.
struct JsonWriteOptions {
  /// Line breaks and a two-space indent instead of the compact form.
  bool prettyPrinted = false;
  /// Object members sorted by key (byte order; members with equal keys keep their order)
  /// instead of in stored order.
  bool sortedKeys = false;
};

/// Writes a value as JSON text. Numbers are written as their stored text; strings escape
/// `"`, `\` and control characters, keep other characters as UTF-8 and replace bytes that
/// are not UTF-8 with U+FFFD, so the output is always valid JSON.
///
///     compact:  {"unit":1,"value":[true,null,"a\"b"]}
///     pretty:   {
///                 "unit": 1,
///                 "value": [
///                   true,
///                   null,
///                   "a\"b"
///                 ]
///               }
std::string toJsonText(const JsonValue& value, const JsonWriteOptions& options = {});

}  // namespace velquist::foundation
VELQUIST_API_END
