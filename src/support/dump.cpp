#include "velquist/support/dump.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <system_error>

namespace velquist::support {

DumpField::DumpField(std::string fieldLabel, DumpValue fieldValue)
    : label(std::move(fieldLabel)), value(std::make_shared<const DumpValue>(std::move(fieldValue))) {}

namespace {

// Fields named `_$...` hold generated storage and are never shown.
std::vector<DumpField> withoutStorageFields(std::vector<DumpField> fields) {
  std::erase_if(fields, [](const DumpField& field) { return field.label.starts_with("_$"); });
  return fields;
}

}  // namespace

DumpValue DumpValue::structure(std::string typeName, std::vector<DumpField> fields) {
  DumpValue result;
  result.kind_ = Kind::structure;
  result.typeName_ = std::move(typeName);
  result.children_ = withoutStorageFields(std::move(fields));
  return result;
}

DumpValue DumpValue::object(std::string typeName, const void* identity,
                            std::function<std::vector<DumpField>()> fields) {
  if (identity == nullptr) return nullObject();
  DumpValue result;
  result.kind_ = Kind::object;
  result.typeName_ = std::move(typeName);
  result.identity_ = identity;
  result.lazyChildren_ = std::move(fields);
  return result;
}

DumpValue DumpValue::enumeration(std::string typeName, std::string caseName,
                                 std::vector<DumpField> payload) {
  DumpValue result;
  result.kind_ = Kind::enumeration;
  result.typeName_ = std::move(typeName);
  result.text_ = std::move(caseName);
  result.children_ = std::move(payload);
  return result;
}

DumpValue DumpValue::array(std::vector<DumpValue> elements) {
  DumpValue result;
  result.kind_ = Kind::array;
  result.children_.reserve(elements.size());
  for (std::size_t index = 0; index < elements.size(); ++index) {
    result.children_.emplace_back("[" + std::to_string(index) + "]", std::move(elements[index]));
  }
  return result;
}

DumpValue DumpValue::dictionary(std::vector<std::pair<DumpValue, DumpValue>> entries) {
  DumpValue result;
  result.kind_ = Kind::dictionary;
  result.entries_.reserve(entries.size());
  for (auto& [key, value] : entries) {
    result.entries_.emplace_back(std::make_shared<const DumpValue>(std::move(key)),
                                 std::make_shared<const DumpValue>(std::move(value)));
  }
  return result;
}

DumpValue DumpValue::set(std::vector<DumpValue> elements) {
  DumpValue result;
  result.kind_ = Kind::set;
  result.children_.reserve(elements.size());
  for (auto& element : elements) result.children_.emplace_back("", std::move(element));
  return result;
}

DumpValue DumpValue::tuple(std::vector<DumpField> elements) {
  DumpValue result;
  result.kind_ = Kind::tuple;
  result.children_ = std::move(elements);
  return result;
}

DumpValue DumpValue::string(std::string text) {
  DumpValue result;
  result.kind_ = Kind::string;
  result.text_ = std::move(text);
  return result;
}

DumpValue DumpValue::leaf(std::string text) {
  DumpValue result;
  result.kind_ = Kind::leaf;
  result.text_ = std::move(text);
  return result;
}

DumpValue DumpValue::verbatim(std::string text) {
  DumpValue result;
  result.kind_ = Kind::verbatim;
  result.text_ = std::move(text);
  return result;
}

DumpValue DumpValue::nil() { return DumpValue(); }

DumpValue DumpValue::nullObject() {
  DumpValue result;
  result.kind_ = Kind::nullObject;
  return result;
}

DumpValue DumpValue::wrappedInOptional(DumpValue value) {
  value.isOptionalWrapped_ = true;
  return value;
}

std::vector<DumpField> DumpValue::children() const {
  if (kind_ == Kind::object) {
    return lazyChildren_ ? withoutStorageFields(lazyChildren_()) : std::vector<DumpField>{};
  }
  return children_;
}

// ---------------------------------------------------------------------------------------
// Numbers

namespace {

// Writes shortest round-trip digits the way the platform prints floating-point numbers:
// plain decimal notation for magnitudes from 1e-4 up to `exponentFormAbove`, exponent
// notation (`1e-05`, `2e+20`, `1.5e+20`) outside that range.
template <class Float>
std::string floatingDescription(Float value, Float exponentFormAbove) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  if (value == 0) return std::signbit(value) ? "-0.0" : "0.0";

  // The scientific form of to_chars gives the shortest digits: "d.ddde+XX".
  char buffer[64];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value), std::chars_format::scientific);
  if (error != std::errc()) return "nan";  // cannot happen with this buffer size
  const std::string_view scientific(buffer, static_cast<std::size_t>(end - buffer));
  const std::size_t exponentMark = scientific.find('e');

  std::string digits;
  for (char character : scientific.substr(0, exponentMark)) {
    if (character != '.') digits.push_back(character);
  }
  int exponent = 0;  // value = d.ddd x 10^exponent
  const std::string_view exponentText = scientific.substr(exponentMark + 1);
  std::from_chars(exponentText.data() + (exponentText.front() == '+' ? 1 : 0),
                  exponentText.data() + exponentText.size(), exponent);

  std::string result = std::signbit(value) ? "-" : "";
  if (exponent < -4 || std::fabs(value) > exponentFormAbove) {
    result += scientific;
    return result;
  }
  if (exponent < 0) {
    result += "0.";
    result.append(static_cast<std::size_t>(-exponent - 1), '0');
    result += digits;
    return result;
  }
  const auto integerDigits = static_cast<std::size_t>(exponent) + 1;
  if (digits.size() <= integerDigits) {
    result += digits;
    result.append(integerDigits - digits.size(), '0');
    result += ".0";
  } else {
    result += digits.substr(0, integerDigits);
    result += '.';
    result += digits.substr(integerDigits);
  }
  return result;
}

}  // namespace

std::string doubleDescription(double value) { return floatingDescription(value, 0x1.0p54); }

std::string floatDescription(float value) { return floatingDescription(value, 0x1.0p25f); }

// ---------------------------------------------------------------------------------------
// Strings

namespace {

constexpr std::string_view kEllipsis = "\u2026";
constexpr std::string_view kBackReference = "\u21A9\uFE0E";
constexpr std::string_view kReplacementCharacter = "\uFFFD";

bool isContinuationByte(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Copies UTF-8 text, writing U+FFFD for each maximal invalid subsequence (a stray
// continuation byte, a truncated sequence, an overlong form, a surrogate, a value above
// U+10FFFF), so that everything after it reads as the valid text it is.
std::string repairedUtf8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  std::size_t index = 0;
  while (index < text.size()) {
    const auto lead = static_cast<unsigned char>(text[index]);
    if (lead < 0x80) {
      result.push_back(static_cast<char>(lead));
      ++index;
      continue;
    }
    std::size_t length = 0;
    unsigned char secondLow = 0x80;
    unsigned char secondHigh = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) secondLow = 0xA0;   // no overlong forms
      if (lead == 0xED) secondHigh = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) secondLow = 0x90;   // no overlong forms
      if (lead == 0xF4) secondHigh = 0x8F;  // nothing above U+10FFFF
    }
    std::size_t valid = length == 0 ? 0 : 1;
    while (valid < length && index + valid < text.size()) {
      const auto byte = static_cast<unsigned char>(text[index + valid]);
      const bool fits = valid == 1 ? (byte >= secondLow && byte <= secondHigh) : isContinuationByte(byte);
      if (!fits) break;
      ++valid;
    }
    if (length != 0 && valid == length) {
      result.append(text.substr(index, length));
      index += length;
    } else {
      result += kReplacementCharacter;
      index += std::max<std::size_t>(valid, 1);
    }
  }
  return result;
}

// LF, VT, FF, CR, NEL (U+0085), LINE SEPARATOR (U+2028), PARAGRAPH SEPARATOR (U+2029).
// `text` is valid UTF-8, so these byte patterns cannot be parts of other characters.
bool containsNewline(std::string_view text) {
  return text.find_first_of("\n\v\f\r") != std::string_view::npos ||
         text.find("\u0085") != std::string_view::npos || text.find("\u2028") != std::string_view::npos ||
         text.find("\u2029") != std::string_view::npos;
}

std::size_t hashesAfter(std::string_view text, std::size_t position) {
  std::size_t count = 0;
  while (position + count < text.size() && text[position + count] == '#') ++count;
  return count;
}

// Prefixes every line of `text` (lines end at LF), blank ones included.
std::string indented(std::string_view text, std::string_view prefix) {
  std::string result(prefix);
  for (char character : text) {
    result.push_back(character);
    if (character == '\n') result += prefix;
  }
  return result;
}

// A string with a line break: a block between `"""` delimiters, content unescaped. The
// delimiters get enough `#` that no `"""#...` inside can end the block early; a labelled
// block is indented two more spaces so its content sits under the label.
std::string multiLineString(std::string_view text, bool isLabelled) {
  std::size_t hashCount = 0;
  for (std::size_t position = text.find(R"(""")"); position != std::string_view::npos;
       position = text.find(R"(""")", position + 1)) {
    hashCount = std::max(hashCount, hashesAfter(text, position + 3) + 1);
  }
  const std::string hashes(hashCount, '#');
  const std::string_view extraIndent = isLabelled ? "  " : "";
  return hashes + "\"\"\"\n" + indented(text, extraIndent) + "\n" + std::string(extraIndent) + "\"\"\"" +
         hashes;
}

// A string with `"` or `\`: a raw string, with one more `#` than any run following a quote.
std::string rawString(std::string_view text) {
  std::size_t hashCount = 1;
  for (std::size_t position = text.find('"'); position != std::string_view::npos;
       position = text.find('"', position + 1)) {
    hashCount = std::max(hashCount, hashesAfter(text, position + 1) + 1);
  }
  const std::string hashes(hashCount, '#');
  return hashes + "\"" + std::string(text) + "\"" + hashes;
}

// Any other string: quoted, with tab, NUL, apostrophe and the other ASCII control
// characters escaped.
std::string quotedString(std::string_view text) {
  static constexpr char kHexDigits[] = "0123456789ABCDEF";
  std::string result = "\"";
  for (char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '\t') {
      result += "\\t";
    } else if (character == '\0') {
      result += "\\0";
    } else if (character == '\'') {
      result += "\\'";
    } else if (byte < 0x20 || byte == 0x7F) {
      result += "\\u{";
      result += kHexDigits[byte >> 4];
      result += kHexDigits[byte & 0x0F];
      result += '}';
    } else {
      result.push_back(character);
    }
  }
  result += '"';
  return result;
}

std::string stringText(std::string_view rawText, bool isLabelled, std::int64_t depth) {
  const std::string text = repairedUtf8(rawText);
  if (containsNewline(text)) {
    if (depth <= 0) return "\"" + std::string(kEllipsis) + "\"";
    return multiLineString(text, isLabelled);
  }
  if (text.find_first_of("\"\\") != std::string::npos) return rawString(text);
  return quotedString(text);
}

// ---------------------------------------------------------------------------------------
// The renderer

using ObjectKey = std::pair<std::string, const void*>;
// The fields of every object met in one dump, fetched once from its provider.
using FieldCache = std::map<ObjectKey, std::vector<DumpField>>;

bool hasLineBreak(std::string_view text) { return text.find('\n') != std::string_view::npos; }

std::int64_t childDepth(std::int64_t depth) {
  return depth == std::numeric_limits<std::int64_t>::min() ? depth : depth - 1;
}

// One pass over a shape. The object markers (`#1 `, back-references) belong to the pass;
// the field cache is shared with the side passes that render sort keys, so a provider
// still runs once per dump.
class Renderer {
 public:
  explicit Renderer(FieldCache& fieldCache) : fieldCache_(fieldCache) {}

  // The text of `value` without its label. `isLabelled` tells whether the caller writes a
  // label in front (it indents multi-line strings); only the dumped value itself is the root.
  std::string text(const DumpValue& value, bool isLabelled, bool isRoot, std::int64_t depth) {
    if (value.isOptionalWrapped()) {
      // An optional is written as its value, which is then no longer the root or labelled.
      isLabelled = false;
      isRoot = false;
    }
    switch (value.kind()) {
      case DumpValue::Kind::structure:
        return container(value.typeName() + "(", ")", value.children(), true, depth);
      case DumpValue::Kind::object:
        return objectText(value, depth);
      case DumpValue::Kind::enumeration:
        return enumerationText(value, isRoot, depth);
      case DumpValue::Kind::array:
        return container("[", "]", value.children(), false, depth);
      case DumpValue::Kind::dictionary:
        return dictionaryText(value, depth);
      case DumpValue::Kind::set:
        return setText(value, depth);
      case DumpValue::Kind::tuple:
        return container("(", ")", value.children(), true, depth);
      case DumpValue::Kind::string:
        return stringText(value.text(), isLabelled, depth);
      case DumpValue::Kind::leaf:
      case DumpValue::Kind::verbatim:
        return value.text();
      case DumpValue::Kind::nil:
        return "nil";
      case DumpValue::Kind::nullObject:
        return "(null pointer)";
    }
    return "";
  }

 private:
  const std::vector<DumpField>& objectFields(const DumpValue& value) {
    const ObjectKey key(value.typeName(), value.identity());
    auto found = fieldCache_.find(key);
    if (found == fieldCache_.end()) found = fieldCache_.emplace(key, value.children()).first;
    return found->second;
  }

  // A leaf has no children of its own; a present optional is not one unless it holds a
  // verbatim value, and a verbatim value is one only while it fits on a line.
  bool isLeaf(const DumpValue& value) {
    if (value.kind() == DumpValue::Kind::verbatim) return !hasLineBreak(value.text());
    if (value.isOptionalWrapped()) return false;
    switch (value.kind()) {
      case DumpValue::Kind::structure:
      case DumpValue::Kind::enumeration:
      case DumpValue::Kind::array:
      case DumpValue::Kind::set:
      case DumpValue::Kind::tuple:
        return value.children().empty();
      case DumpValue::Kind::object:
        return objectFields(value).empty();
      case DumpValue::Kind::dictionary:
        return value.entries().empty();
      default:
        return true;
    }
  }

  std::string labelledText(const DumpField& field, std::int64_t depth) {
    const bool isLabelled = !field.label.empty();
    std::string body = text(*field.value, isLabelled, false, depth);
    return isLabelled ? field.label + ": " + body : body;
  }

  // The layout shared by every container: `prefix suffix` when empty, one line when its
  // only child is a short leaf (unless `mayInline` is false), else one child per line
  // indented two spaces, or `prefix…suffix` when no depth is left.
  std::string container(const std::string& prefix, const std::string& suffix,
                        const std::vector<DumpField>& children, bool mayInline, std::int64_t depth) {
    if (children.empty()) return prefix + suffix;
    const std::string collapsed = prefix + std::string(kEllipsis) + suffix;
    if (mayInline && children.size() == 1 && isLeaf(*children.front().value)) {
      const std::string child = labelledText(children.front(), childDepth(depth));
      if (!hasLineBreak(child)) return prefix + child + suffix;
      if (depth <= 0) return collapsed;
      return prefix + "\n" + indented(child, "  ") + "\n" + suffix;
    }
    if (depth <= 0) return collapsed;
    std::string result = prefix + "\n";
    for (std::size_t index = 0; index < children.size(); ++index) {
      if (index > 0) result += ",\n";
      result += indented(labelledText(children[index], childDepth(depth)), "  ");
    }
    return result + "\n" + suffix;
  }

  // Objects are numbered per type name in order of first sighting: the first has no
  // marker, the second `#1 `, the third `#2 `. A later sighting writes `Type(↩︎)`.
  std::string objectText(const DumpValue& value, std::int64_t depth) {
    const ObjectKey key(value.typeName(), value.identity());
    const auto seen = markers_.find(key);
    if (seen != markers_.end()) {
      return marker(seen->second) + value.typeName() + "(" + std::string(kBackReference) + ")";
    }
    const std::int64_t number = nextNumberByType_[value.typeName()]++;
    markers_.emplace(key, number);
    return container(marker(number) + value.typeName() + "(", ")", objectFields(value), true, depth);
  }

  static std::string marker(std::int64_t number) {
    return number == 0 ? "" : "#" + std::to_string(number) + " ";
  }

  std::string enumerationText(const DumpValue& value, bool isRoot, std::int64_t depth) {
    std::string name = "." + value.text();
    if (isRoot && !value.typeName().empty()) name = value.typeName() + name;
    if (value.children().empty()) return name;
    return container(name + "(", ")", value.children(), true, depth);
  }

  // The text a value would have on its own, in a pass of its own: used only for sorting.
  std::string sortText(const DumpValue& value, bool isRoot, std::int64_t depth) {
    Renderer side(fieldCache_);
    return side.text(value, false, isRoot, depth);
  }

  // Entries sorted by the byte order of the key text; each written `key: value`.
  std::string dictionaryText(const DumpValue& value, std::int64_t depth) {
    const auto& entries = value.entries();
    if (entries.empty()) return "[:]";
    if (depth <= 0) return "[" + std::string(kEllipsis) + "]";
    std::vector<std::pair<std::string, std::size_t>> order;
    order.reserve(entries.size());
    for (std::size_t index = 0; index < entries.size(); ++index) {
      order.emplace_back(sortText(*entries[index].first, false, childDepth(depth)), index);
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
    std::string result = "[\n";
    for (std::size_t position = 0; position < order.size(); ++position) {
      const auto& [key, mapped] = entries[order[position].second];
      if (position > 0) result += ",\n";
      const std::string keyText = text(*key, false, false, childDepth(depth));
      result += indented(keyText + ": " + text(*mapped, true, false, childDepth(depth)), "  ");
    }
    return result + "\n]";
  }

  // Elements sorted by the byte order of their own text at depth 1.
  std::string setText(const DumpValue& value, std::int64_t depth) {
    std::vector<DumpField> elements = value.children();
    if (elements.empty() || depth <= 0) return container("Set([", "])", elements, false, depth);
    std::vector<std::pair<std::string, std::size_t>> order;
    order.reserve(elements.size());
    for (std::size_t index = 0; index < elements.size(); ++index) {
      order.emplace_back(sortText(*elements[index].value, true, 1), index);
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& lhs, const auto& rhs) { return lhs.first < rhs.first; });
    std::vector<DumpField> sorted;
    sorted.reserve(elements.size());
    for (const auto& [sortKey, index] : order) sorted.push_back(elements[index]);
    return container("Set([", "])", sorted, false, depth);
  }

  FieldCache& fieldCache_;
  std::map<ObjectKey, std::int64_t> markers_;
  std::map<std::string, std::int64_t> nextNumberByType_;
};

}  // namespace

std::string render(const DumpValue& value, std::int64_t maxDepth) {
  FieldCache fieldCache;
  Renderer renderer(fieldCache);
  return renderer.text(value, false, true, maxDepth);
}

}  // namespace velquist::support
