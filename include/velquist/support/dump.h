#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "velquist/foundation/decimal.h"
#include "velquist/foundation/locale.h"

namespace velquist::support {

class DumpValue;

/// One labelled child of a container: a field name, or empty for a positional child.
struct DumpField {
  std::string label;
  std::shared_ptr<const DumpValue> value;
  DumpField(std::string label, DumpValue value);
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
/// Immutable once built; safe to share between threads.
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

  static DumpValue structure(std::string typeName, std::vector<DumpField> fields);
  /// An object: `identity` tells instances apart; `fields` is called at most once per dump and
  /// only for the first sighting, so cycles are fine.
  static DumpValue object(std::string typeName, const void* identity,
                          std::function<std::vector<DumpField>()> fields);
  static DumpValue enumeration(std::string typeName, std::string caseName,
                               std::vector<DumpField> payload = {});
  static DumpValue array(std::vector<DumpValue> elements);
  static DumpValue dictionary(std::vector<std::pair<DumpValue, DumpValue>> entries);
  static DumpValue set(std::vector<DumpValue> elements);
  static DumpValue tuple(std::vector<DumpField> elements);
  static DumpValue string(std::string text);
  static DumpValue leaf(std::string text);
  static DumpValue verbatim(std::string text);
  static DumpValue nil();
  static DumpValue nullObject();
  /// The value of a present optional: rendered as `value`, but no longer a leaf for the
  /// one-child inline rule unless it is verbatim.
  static DumpValue wrappedInOptional(DumpValue value);

  Kind kind() const { return kind_; }
  const std::string& typeName() const { return typeName_; }
  const std::string& text() const { return text_; }
  const void* identity() const { return identity_; }
  bool isOptionalWrapped() const { return isOptionalWrapped_; }
  /// The children; for objects this calls the field provider.
  std::vector<DumpField> children() const;
  /// Dictionary entries.
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
}  // namespace detail

/// Swift's text of a double: shortest round-trip digits, always with `.` or an exponent
/// (`0.9`, `42.0`, `1e-05`, `2e+20`, `nan`, `inf`).
std::string doubleDescription(double value);

/// The dump shape of any supported value: the ADL hook `customDumpValue`, else the built-in
/// shapes of strings, booleans, numbers, `Decimal`, `Locale`, optionals, vectors, maps, sets
/// and shared pointers (objects, through the pointee's hook).
template <class T>
DumpValue dumpValue(const T& value) {
  if constexpr (detail::HasCustomDumpValue<T>) {
    return customDumpValue(value);
  } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, const char*>) {
    return DumpValue::string(std::string(value));
  } else if constexpr (std::is_same_v<T, bool>) {
    return DumpValue::leaf(value ? "true" : "false");
  } else if constexpr (std::is_integral_v<T>) {
    return DumpValue::leaf(std::to_string(value));
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
  } else if constexpr (detail::IsSharedPtr<T>::value) {
    return value ? dumpValue(*value) : DumpValue::nullObject();
  } else {
    static_assert(sizeof(T) == 0, "no dump shape for this type: add a customDumpValue hook");
  }
}

inline constexpr std::int64_t unlimitedDumpDepth = std::numeric_limits<std::int64_t>::max();

/// Renders a shape as text, with no name and indent 0. No trailing newline.
///
///     Product.SubscriptionPeriod(
///       unit: .month,
///       value: 1
///     )
std::string render(const DumpValue& value, std::int64_t maxDepth = unlimitedDumpDepth);

/// The dump of a value: `render(dumpValue(value), maxDepth)`.
template <class T>
std::string customDump(const T& value, std::int64_t maxDepth = unlimitedDumpDepth) {
  return render(dumpValue(value), maxDepth);
}

}  // namespace velquist::support
