#include "velquist/foundation/json.h"

#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace velquist::foundation {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The length of the longest prefix of `text` that is a JSON number,
// -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?, or 0 when there is none.
std::size_t jsonNumberLength(std::string_view text) {
  const auto digitsFrom = [&](std::size_t start) {
    std::size_t end = start;
    while (end < text.size() && isDigit(text[end])) ++end;
    return end;
  };
  std::size_t i = text.starts_with('-') ? 1 : 0;
  if (i >= text.size() || !isDigit(text[i])) return 0;
  i = text[i] == '0' ? i + 1 : digitsFrom(i);
  if (i + 1 < text.size() && text[i] == '.' && isDigit(text[i + 1])) i = digitsFrom(i + 1);
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    std::size_t k = i + 1;
    if (k < text.size() && (text[k] == '+' || text[k] == '-')) ++k;
    if (k < text.size() && isDigit(text[k])) i = digitsFrom(k);
  }
  return i;
}

bool isJsonNumberText(std::string_view text) { return !text.empty() && jsonNumberLength(text) == text.size(); }

[[noreturn]] void wrongKind(JsonValue::Kind actual, std::string_view wanted) {
  throw std::logic_error("JsonValue holds " + std::string(kindName(actual)) + ", not " + std::string(wanted));
}

// ---------------------------------------------------------------------------------------
// Reading

// Builds JsonValues from the parser's events. Containers under construction sit on a
// stack; a finished value goes into the container on top, or becomes the result.
class TreeBuilder {
 public:
  using json = nlohmann::json;

  // `hiddenNumbers` maps the ordinal of a number in the document (0 for the first) to its
  // text, for numbers the parser was shown as a stand-in.
  TreeBuilder(std::size_t maxDepth, const std::map<std::size_t, std::string>& hiddenNumbers)
      : maxDepth_(maxDepth), hiddenNumbers_(hiddenNumbers) {}

  bool null() { return add(JsonValue()); }
  bool boolean(bool value) { return add(JsonValue(value)); }
  bool number_integer(json::number_integer_t value) { return addNumber(std::to_string(value)); }
  bool number_unsigned(json::number_unsigned_t value) { return addNumber(std::to_string(value)); }
  // Every number that is not a plain 64-bit integer arrives here with its text.
  bool number_float(json::number_float_t /*value*/, const std::string& text) { return addNumber(text); }
  bool string(std::string& value) { return add(JsonValue(std::move(value))); }
  bool binary(json::binary_t& /*value*/) { return false; }  // never produced for JSON text

  bool start_object(std::size_t /*count*/) { return open(JsonValue(JsonValue::Object{})); }
  bool key(std::string& name) {
    pendingKeys_.push_back(std::move(name));
    return true;
  }
  bool end_object() { return close(); }
  bool start_array(std::size_t /*count*/) { return open(JsonValue(JsonValue::Array{})); }
  bool end_array() { return close(); }

  bool parse_error(std::size_t position, const std::string& lastToken, const nlohmann::detail::exception& error) {
    errorPosition_ = position;
    errorId_ = error.id;
    errorReason_ = error.what();
    // Keep only the reason: drop "[json.exception.parse_error.101] " and
    // "parse error at line 1, column 4: ".
    if (errorReason_.starts_with('[')) {
      if (const auto end = errorReason_.find("] "); end != std::string::npos) errorReason_.erase(0, end + 2);
    }
    if (errorReason_.starts_with("parse error")) {
      if (const auto colon = errorReason_.find(": "); colon != std::string::npos) errorReason_.erase(0, colon + 2);
    }
    // What the parser last read may show stand-ins for hidden numbers; leave it out.
    if (!hiddenNumbers_.empty()) {
      const std::string lastRead = "; last read: '" + lastToken + "'";
      if (const auto at = errorReason_.find(lastRead); at != std::string::npos) errorReason_.erase(at, lastRead.size());
    }
    return false;
  }

  bool tooDeep() const { return tooDeep_; }
  std::size_t errorPosition() const { return errorPosition_; }
  // nlohmann's error number: 406 is a number too large for a double.
  int errorId() const { return errorId_; }
  const std::string& errorReason() const { return errorReason_; }
  JsonValue takeResult() { return std::move(result_); }

 private:
  bool addNumber(const std::string& text) {
    const auto hidden = hiddenNumbers_.find(numbersSeen_++);
    return add(JsonValue::number(hidden == hiddenNumbers_.end() ? text : hidden->second));
  }

  bool open(JsonValue container) {
    if (open_.size() >= maxDepth_) {
      tooDeep_ = true;
      return false;
    }
    open_.push_back(std::move(container));
    return true;
  }

  bool close() {
    JsonValue finished = std::move(open_.back());
    open_.pop_back();
    return add(std::move(finished));
  }

  bool add(JsonValue value) {
    if (open_.empty()) {
      result_ = std::move(value);
    } else if (open_.back().kind() == JsonValue::Kind::array) {
      open_.back().arrayValue().push_back(std::move(value));
    } else {
      open_.back().objectValue().emplace_back(std::move(pendingKeys_.back()), std::move(value));
      pendingKeys_.pop_back();
    }
    return true;
  }

  std::size_t maxDepth_;
  const std::map<std::size_t, std::string>& hiddenNumbers_;
  std::size_t numbersSeen_ = 0;
  std::vector<JsonValue> open_;
  std::vector<std::string> pendingKeys_;
  JsonValue result_;
  bool tooDeep_ = false;
  std::size_t errorPosition_ = 0;
  int errorId_ = 0;
  std::string errorReason_;
};

// Walks the bytes of `text` outside strings, skipping strings by their quotes and escapes
// alone: exact for text that is valid JSON up to where the walk is used. `visit(i)` returns
// how many bytes after text[i] it consumed, or nothing to stop the walk.
template <class Visit>
void forEachOutsideStrings(std::string_view text, Visit visit) {
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else {
      const std::optional<std::size_t> consumed = visit(i);
      if (!consumed) return;
      i += *consumed;
    }
  }
}

// The 1-based byte position of the bracket that opens nesting level `depth`. Only called
// once the parser has accepted everything up to that bracket.
std::size_t positionOfLevel(std::string_view text, std::size_t depth) {
  std::size_t level = 0;
  std::size_t position = text.size();
  forEachOutsideStrings(text, [&](std::size_t i) -> std::optional<std::size_t> {
    if (text[i] == '[' || text[i] == '{') {
      if (++level == depth) {
        position = i + 1;
        return std::nullopt;
      }
    } else if (text[i] == ']' || text[i] == '}') {
      --level;
    }
    return 0;
  });
  return position;
}

// Whether a JSON number's magnitude is 1e308 or more, where a double may overflow.
bool isHugeNumber(std::string_view text) {
  std::size_t i = text.starts_with('-') ? 1 : 0;
  // The power of ten of the first significant digit, before the exponent part.
  std::int64_t magnitude = 0;
  bool seenSignificant = false;
  for (; i < text.size() && isDigit(text[i]); ++i) {
    if (seenSignificant) {
      ++magnitude;
    } else if (text[i] != '0') {
      seenSignificant = true;
    }
  }
  if (i < text.size() && text[i] == '.') {
    for (++i; i < text.size() && isDigit(text[i]); ++i) {
      if (seenSignificant) continue;
      --magnitude;
      if (text[i] != '0') seenSignificant = true;
    }
  }
  if (!seenSignificant) return false;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    std::int64_t exponent = 0;
    for (; i < text.size() && isDigit(text[i]); ++i) {
      if (exponent < 1'000'000'000) exponent = exponent * 10 + (text[i] - '0');
    }
    magnitude += negative ? -exponent : exponent;
  }
  return magnitude >= 308;
}

// The text with every number of magnitude 1e308 or more replaced by "0" and spaces (the
// same length, so positions in error reports stay right), and those numbers' texts by
// their ordinal among all numbers of the document. Strings are skipped by their quotes
// and escapes, which is exact for text that is valid JSON up to where the parser stops.
struct HiddenNumbers {
  std::string shown;
  std::map<std::size_t, std::string> texts;
};

HiddenNumbers hideHugeNumbers(std::string_view text) {
  HiddenNumbers hidden{std::string(text), {}};
  std::size_t ordinal = 0;
  forEachOutsideStrings(text, [&](std::size_t i) -> std::optional<std::size_t> {
    if (text[i] != '-' && !isDigit(text[i])) return 0;
    // The parser reads the longest number here, as this does.
    const std::size_t length = jsonNumberLength(text.substr(i));
    if (length == 0) return 0;
    const std::string_view token = text.substr(i, length);
    if (isHugeNumber(token)) {
      hidden.texts.emplace(ordinal, std::string(token));
      hidden.shown.replace(i, length, "0" + std::string(length - 1, ' '));
    }
    ++ordinal;
    return length - 1;
  });
  return hidden;
}

DecodingError invalidJson(const std::string& reason) {
  return DecodingError(DecodingError::Kind::dataCorrupted, {}, "The given data was not valid JSON: " + reason);
}

// ---------------------------------------------------------------------------------------
// Writing

// The length of the well-formed UTF-8 sequence starting at text[i], or 0 if there is none.
std::size_t utf8SequenceLength(std::string_view text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  std::size_t length = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // no overlong forms
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;   // no overlong forms
    if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  if (byte(i + 1) < low || byte(i + 1) > high) return 0;
  for (std::size_t k = 2; k < length; ++k) {
    if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
  }
  return length;
}

void writeString(std::string& out, std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  out += '"';
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x80) {
      const std::size_t length = utf8SequenceLength(text, i);
      if (length == 0) {
        out += "\xEF\xBF\xBD";  // U+FFFD for a byte that starts no valid sequence
        ++i;
      } else {
        out.append(text, i, length);
        i += length;
      }
      continue;
    }
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (byte < 0x20) {
          out += "\\u00";
          out += hex[byte >> 4];
          out += hex[byte & 0x0F];
        } else {
          out += c;
        }
    }
    ++i;
  }
  out += '"';
}

class Writer {
 public:
  explicit Writer(const JsonWriteOptions& options) : options_(options) {}

  void write(const JsonValue& value, std::size_t depth) {
    switch (value.kind()) {
      case JsonValue::Kind::null: out_ += "null"; break;
      case JsonValue::Kind::boolean: out_ += value.boolValue() ? "true" : "false"; break;
      case JsonValue::Kind::number: out_ += value.numberText(); break;
      case JsonValue::Kind::string: writeString(out_, value.stringValue()); break;
      case JsonValue::Kind::array: writeArray(value.arrayValue(), depth); break;
      case JsonValue::Kind::object: writeObject(value.objectValue(), depth); break;
    }
  }

  std::string take() { return std::move(out_); }

 private:
  void writeArray(const JsonValue::Array& elements, std::size_t depth) {
    if (elements.empty()) {
      out_ += "[]";
      return;
    }
    out_ += '[';
    for (std::size_t i = 0; i < elements.size(); ++i) {
      if (i > 0) out_ += ',';
      newline(depth + 1);
      write(elements[i], depth + 1);
    }
    newline(depth);
    out_ += ']';
  }

  void writeObject(const JsonValue::Object& members, std::size_t depth) {
    if (members.empty()) {
      out_ += "{}";
      return;
    }
    std::vector<const JsonValue::Member*> order;
    order.reserve(members.size());
    for (const auto& member : members) order.push_back(&member);
    if (options_.sortedKeys) {
      std::stable_sort(order.begin(), order.end(), [](const auto* lhs, const auto* rhs) { return lhs->first < rhs->first; });
    }
    out_ += '{';
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (i > 0) out_ += ',';
      newline(depth + 1);
      writeString(out_, order[i]->first);
      out_ += options_.prettyPrinted ? ": " : ":";
      write(order[i]->second, depth + 1);
    }
    newline(depth);
    out_ += '}';
  }

  void newline(std::size_t depth) {
    if (!options_.prettyPrinted) return;
    out_ += '\n';
    out_.append(2 * depth, ' ');
  }

  const JsonWriteOptions& options_;
  std::string out_;
};

}  // namespace

JsonValue JsonValue::number(std::string_view text) {
  if (!isJsonNumberText(text)) {
    throw std::invalid_argument("not a JSON number: \"" + std::string(text) + "\"");
  }
  JsonValue value;
  value.storage_ = Number{std::string(text)};
  return value;
}


bool JsonValue::boolValue() const {
  if (const auto* value = std::get_if<bool>(&storage_)) return *value;
  wrongKind(kind(), "boolean");
}

const std::string& JsonValue::numberText() const {
  if (const auto* value = std::get_if<Number>(&storage_)) return value->text;
  wrongKind(kind(), "number");
}

const std::string& JsonValue::stringValue() const {
  if (const auto* value = std::get_if<std::string>(&storage_)) return *value;
  wrongKind(kind(), "string");
}

const JsonValue::Array& JsonValue::arrayValue() const {
  if (const auto* value = std::get_if<Array>(&storage_)) return *value;
  wrongKind(kind(), "array");
}

JsonValue::Array& JsonValue::arrayValue() {
  if (auto* value = std::get_if<Array>(&storage_)) return *value;
  wrongKind(kind(), "array");
}

const JsonValue::Object& JsonValue::objectValue() const {
  if (const auto* value = std::get_if<Object>(&storage_)) return *value;
  wrongKind(kind(), "object");
}

JsonValue::Object& JsonValue::objectValue() {
  if (auto* value = std::get_if<Object>(&storage_)) return *value;
  wrongKind(kind(), "object");
}

const JsonValue* JsonValue::find(std::string_view key) const {
  const auto* members = std::get_if<Object>(&storage_);
  if (members == nullptr) return nullptr;
  for (auto it = members->rbegin(); it != members->rend(); ++it) {
    if (it->first == key) return &it->second;
  }
  return nullptr;
}

std::string_view kindName(JsonValue::Kind kind) {
  switch (kind) {
    case JsonValue::Kind::null: return "null";
    case JsonValue::Kind::boolean: return "boolean";
    case JsonValue::Kind::number: return "number";
    case JsonValue::Kind::string: return "string";
    case JsonValue::Kind::array: return "array";
    case JsonValue::Kind::object: return "object";
  }
  return "unknown";
}

JsonValue parseJson(std::string_view text, const JsonReadOptions& options) {
  // A NUL byte is never valid JSON, but the parser takes it for the end of the input and
  // would accept "1\0anything"; refuse it first.
  if (const auto nul = text.find('\0'); nul != std::string_view::npos) {
    throw invalidJson("unexpected NUL byte (at byte " + std::to_string(nul + 1) + ").");
  }
  const std::map<std::size_t, std::string> noHiddenNumbers;
  TreeBuilder firstBuilder(options.maxDepth, noHiddenNumbers);
  TreeBuilder* builder = &firstBuilder;
  bool accepted = nlohmann::json::sax_parse(text.begin(), text.end(), builder);

  // The parser also reads every number as a double and stops at one beyond its range,
  // though it is valid JSON; read again with such numbers hidden from it.
  HiddenNumbers hidden;
  std::optional<TreeBuilder> secondBuilder;
  if (!accepted && firstBuilder.errorId() == 406) {
    hidden = hideHugeNumbers(text);
    if (!hidden.texts.empty()) {
      builder = &secondBuilder.emplace(options.maxDepth, hidden.texts);
      accepted = nlohmann::json::sax_parse(hidden.shown.begin(), hidden.shown.end(), builder);
    }
  }

  if (builder->tooDeep()) {
    throw invalidJson("arrays and objects nest deeper than " + std::to_string(options.maxDepth) +
                      " levels (at byte " + std::to_string(positionOfLevel(text, options.maxDepth + 1)) + ").");
  }
  if (!accepted) {
    throw invalidJson(builder->errorReason() + " (at byte " + std::to_string(builder->errorPosition()) + ").");
  }
  JsonValue result = builder->takeResult();
  if (!options.allowFragments && result.kind() != JsonValue::Kind::object) {
    throw invalidJson("the top-level value must be an object, not " + std::string(kindName(result.kind())) + ".");
  }
  return result;
}

std::string toJsonText(const JsonValue& value, const JsonWriteOptions& options) {
  Writer writer(options);
  writer.write(value, 0);
  return writer.take();
}

}  // namespace velquist::foundation
