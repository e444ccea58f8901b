#pragma once

#include "velquist/export.h"
#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "velquist/foundation/decimal.h"
#include "velquist/foundation/locale.h"

VELQUIST_API_BEGIN
namespace velquist::support {

class DumpValue;

/// One labelled child of a container: a field name, or empty for a positional child.
struct DumpField {
  std::string label;
  std::shared_ptr<const DumpValue> value;
  DumpField(std::string fieldLabel, DumpValue fieldValue);
};

/// The shape of a value as the dump renderer sees it: a struct, an object with identity, an
/// enumeration case, a collection, a string, an optional, or a leaf. Types opt in to `dump`
/// through one hook, a free function found by argument-dependent lookup:
///
///     DumpValue customDumpValue(const Money& money) {
///       return DumpValue::structure("Money", {{"amount", dumpValue(money.amount)},
///                                             {"currency", dumpValue(money.currency)}});
///     }
///
/// Type names are written as given, so nested types pass their full name
/// (`"Product.SubscriptionPeriod"`). A hook that stands for another value (a wrapper written
/// as what it wraps) simply returns that value's shape.
///
/// Immutable once built; safe to share between threads as long as the field providers of
/// its objects are.
class DumpValue {
 public:
  enum class Kind {
    structure,    // TypeName( fields )
    object,       // TypeName( fields ) with identity markers and back-references
    enumeration,  // Type.case / .case, with an optional payload
    array,        // [ [0]: ... ]
    dictionary,   // [ key: value ] sorted by rendered key
    set,          // Set([ ... ]) sorted by rendered element
    tuple,        // ( ... )
    string,       // quoted by the string rules
    leaf,         // written as its text: 42, true, 0.9
    verbatim,     // written as given, looks through optionals: 9.99, Locale(en_US)
    nil,          // nil
    nullObject,   // (null pointer)
  };

  /// A record. Fields whose label starts with `_$` (generated storage) are dropped.
  static DumpValue structure(std::string typeName, std::vector<DumpField> fields);
  /// An object: `identity` tells instances apart (usually the object's address); `fields` is
  /// called at most once per dump and only for the first sighting, so cycles are fine. The
  /// provider may hold references into the object: render while the object is alive.
  /// Fields labelled `_$...` are dropped. A null `identity` gives `nullObject()`.
  static DumpValue object(std::string typeName, const void* identity,
                          std::function<std::vector<DumpField>()> fields);
  /// An enumeration case; `payload` holds the associated values (labelled or positional).
  /// Written `TypeName.caseName` at the root and `.caseName` anywhere else.
  static DumpValue enumeration(std::string typeName, std::string caseName,
                               std::vector<DumpField> payload = {});
  static DumpValue array(std::vector<DumpValue> elements);
  static DumpValue dictionary(std::vector<std::pair<DumpValue, DumpValue>> entries);
  static DumpValue set(std::vector<DumpValue> elements);
  /// A tuple; empty labels are positional elements.
  static DumpValue tuple(std::vector<DumpField> elements);
  /// UTF-8 text, quoted when written. Invalid UTF-8 sequences are written as U+FFFD.
  static DumpValue string(std::string text);
  /// A scalar written as its text (`42`, `true`, `0.9`).
  static DumpValue leaf(std::string text);
  /// A value with its own dump text (`9.99`, `Locale(en_US)`, `<redacted>`), written as given.
  static DumpValue verbatim(std::string text);
  static DumpValue nil();
  static DumpValue nullObject();
  /// The value of a present optional: rendered as `value`, but no longer a leaf for the
  /// one-child inline rule unless it is verbatim.
  static DumpValue wrappedInOptional(DumpValue value);

  Kind kind() const { return kind_; }
  /// The type name of structures, objects and enumerations.
  const std::string& typeName() const { return typeName_; }
  /// The text of strings, leaves and verbatim values; the case name of enumerations.
  const std::string& text() const { return text_; }
  const void* identity() const { return identity_; }
  bool isOptionalWrapped() const { return isOptionalWrapped_; }
  /// The children: fields, payload, tuple elements, array elements (labelled `[0]`, `[1]`,
  /// ...) or set elements; for objects this calls the field provider. Empty for dictionaries.
  std::vector<DumpField> children() const;
  /// Dictionary entries, in the order given.
  const std::vector<std::pair<std::shared_ptr<const DumpValue>, std::shared_ptr<const DumpValue>>>& entries() const {
    return entries_;
  }

 private:
  DumpValue() = default;
  Kind kind_ = Kind::nil;
  std::string typeName_;
  std::string text_;
  const void* identity_ = nullptr;
  bool isOptionalWrapped_ = false;
  std::vector<DumpField> children_;
  std::function<std::vector<DumpField>()> lazyChildren_;
  std::vector<std::pair<std::shared_ptr<const DumpValue>, std::shared_ptr<const DumpValue>>> entries_;
};

namespace detail {
template <class T>
concept HasCustomDumpValue = requires(const T& value) {
  { customDumpValue(value) } -> std::same_as<DumpValue>;
};
template <class T> struct IsOptional : std::false_type {};
template <class T> struct IsOptional<std::optional<T>> : std::true_type {};
template <class T> struct IsVector : std::false_type {};
template <class T, class A> struct IsVector<std::vector<T, A>> : std::true_type {};
template <class T> struct IsMap : std::false_type {};
template <class K, class V, class C, class A> struct IsMap<std::map<K, V, C, A>> : std::true_type {};
template <class K, class V, class H, class E, class A>
struct IsMap<std::unordered_map<K, V, H, E, A>> : std::true_type {};
template <class T> struct IsSet : std::false_type {};
template <class K, class C, class A> struct IsSet<std::set<K, C, A>> : std::true_type {};
template <class K, class H, class E, class A> struct IsSet<std::unordered_set<K, H, E, A>> : std::true_type {};
template <class T> struct IsSharedPtr : std::false_type {};
template <class T> struct IsSharedPtr<std::shared_ptr<T>> : std::true_type {};
template <class T> struct IsTuple : std::false_type {};
template <class... Ts> struct IsTuple<std::tuple<Ts...>> : std::true_type {};
template <class A, class B> struct IsTuple<std::pair<A, B>> : std::true_type {};
template <class T>
inline constexpr bool isCString = std::is_same_v<T, const char*> || std::is_same_v<T, char*>;
}  // namespace detail

/// The text of a double: shortest round-trip digits, always with `.` or an exponent; the
/// exponent form below 1e-4 and above 2^54 (`0.9`, `42.0`, `0.0001`, `1e-05`, `2e+20`,
/// `-0.0`, `nan`, `inf`, `-inf`).
std::string doubleDescription(double value);
/// The same for a float, with its own shortest digits and the exponent form above 2^25
/// (`0.1`, `1e+10`).
std::string floatDescription(float value);

/// The dump shape of any supported value: a shape itself, the ADL hook `customDumpValue`, else
/// the built-in shapes of strings (and `char`), booleans, numbers, `Decimal`, `Locale`,
/// optionals, vectors, maps, sets, pairs and tuples, and shared pointers (objects, through the
/// pointee's hook; null is `(null pointer)`).
template <class T>
DumpValue dumpValue(const T& value) {
  if constexpr (std::is_same_v<T, DumpValue>) {
    return value;
  } else if constexpr (detail::HasCustomDumpValue<T>) {
    return customDumpValue(value);
  } else if constexpr (detail::isCString<T>) {
    return value != nullptr ? DumpValue::string(value) : DumpValue::nullObject();
  } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
    return DumpValue::string(std::string(std::string_view(value)));
  } else if constexpr (std::is_same_v<T, char>) {
    return DumpValue::string(std::string(1, value));
  } else if constexpr (std::is_same_v<T, bool>) {
    return DumpValue::leaf(value ? "true" : "false");
  } else if constexpr (std::is_integral_v<T>) {
    return DumpValue::leaf(std::to_string(value));
  } else if constexpr (std::is_same_v<T, float>) {
    return DumpValue::leaf(floatDescription(value));
  } else if constexpr (std::is_floating_point_v<T>) {
    return DumpValue::leaf(doubleDescription(static_cast<double>(value)));
  } else if constexpr (std::is_same_v<T, foundation::Decimal>) {
    return DumpValue::verbatim(value.description());
  } else if constexpr (std::is_same_v<T, foundation::Locale>) {
    return DumpValue::verbatim("Locale(" + value.identifier() + ")");
  } else if constexpr (detail::IsOptional<T>::value) {
    return value ? DumpValue::wrappedInOptional(dumpValue(*value)) : DumpValue::nil();
  } else if constexpr (detail::IsVector<T>::value) {
    std::vector<DumpValue> elements;
    elements.reserve(value.size());
    for (const auto& element : value) elements.push_back(dumpValue(element));
    return DumpValue::array(std::move(elements));
  } else if constexpr (detail::IsMap<T>::value) {
    std::vector<std::pair<DumpValue, DumpValue>> entries;
    for (const auto& [key, mapped] : value) entries.emplace_back(dumpValue(key), dumpValue(mapped));
    return DumpValue::dictionary(std::move(entries));
  } else if constexpr (detail::IsSet<T>::value) {
    std::vector<DumpValue> elements;
    for (const auto& element : value) elements.push_back(dumpValue(element));
    return DumpValue::set(std::move(elements));
  } else if constexpr (detail::IsTuple<T>::value) {
    return std::apply(
        [](const auto&... elements) {
          return DumpValue::tuple(std::vector<DumpField>{DumpField("", dumpValue(elements))...});
        },
        value);
  } else if constexpr (detail::IsSharedPtr<T>::value) {
    return value ? dumpValue(*value) : DumpValue::nullObject();
  } else {
    static_assert(sizeof(T) == 0, "no dump shape for this type: add a customDumpValue hook");
  }
}

inline constexpr std::int64_t unlimitedDumpDepth = std::numeric_limits<std::int64_t>::max();

/// Renders a shape as text, with no name and indent 0. No trailing newline. Each container
/// level uses up one unit of `maxDepth`; a non-empty container reached with no depth left
/// is written collapsed (`User(…)`, `[…]`). Safe to call from any thread.
///
///     Product.SubscriptionPeriod(
///       unit: .month,
///       value: 1
///     )
std::string render(const DumpValue& value, std::int64_t maxDepth = unlimitedDumpDepth);

/// The dump of a value: `render(dumpValue(value), maxDepth)`.
///
///     customDump(std::map<std::string, std::string>{{"result", "filtered"}})
///       -> [
///            "result": "filtered"
///          ]
template <class T>
std::string customDump(const T& value, std::int64_t maxDepth = unlimitedDumpDepth) {
  return render(dumpValue(value), maxDepth);
}

}  // namespace velquist::support
VELQUIST_API_END
