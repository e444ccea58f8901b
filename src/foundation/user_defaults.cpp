#include "velquist/foundation/user_defaults.h"

#include <array>
#include <exception>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>
#include <variant>

#include "velquist/foundation/bundle.h"
#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"

namespace velquist::foundation {
namespace {

using Bytes = UserDefaults::Bytes;

constexpr std::string_view base64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64Encode(const Bytes& bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = static_cast<std::uint32_t>(bytes[i]) << 16;
    if (count > 1) group |= static_cast<std::uint32_t>(bytes[i + 1]) << 8;
    if (count > 2) group |= bytes[i + 2];
    for (std::size_t k = 0; k < 4; ++k) {
      text += k <= count ? base64Alphabet[(group >> (18 - 6 * k)) & 0x3f] : '=';
    }
  }
  return text;
}

// Strict: whole groups of four, padding only at the end, nothing outside the alphabet.
std::optional<Bytes> base64Decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  Bytes bytes;
  bytes.reserve(text.size() / 4 * 3);
  for (std::size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    std::uint32_t group = 0;
    std::size_t padding = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      const char c = text[i + k];
      if (c == '=' && last && k >= 2) {
        ++padding;
        group <<= 6;
        continue;
      }
      const auto position = base64Alphabet.find(c);
      if (position == std::string_view::npos || padding > 0) return std::nullopt;
      group = (group << 6) | static_cast<std::uint32_t>(position);
    }
    bytes.push_back(static_cast<std::uint8_t>(group >> 16));
    if (padding < 2) bytes.push_back(static_cast<std::uint8_t>(group >> 8));
    if (padding < 1) bytes.push_back(static_cast<std::uint8_t>(group));
  }
  return bytes;
}

// A stored value: text, bytes, or an entry of a shape we do not read but keep.
using Value = std::variant<std::string, Bytes, JsonValue>;
using Entries = std::map<std::string, Value, std::less<>>;

Value decodeEntry(const JsonValue& json) {
  if (json.kind() == JsonValue::Kind::string) return json.stringValue();
  if (json.kind() == JsonValue::Kind::object && json.objectValue().size() == 1) {
    const auto& [name, data] = json.objectValue().front();
    if (name == "data" && data.kind() == JsonValue::Kind::string) {
      if (auto bytes = base64Decode(data.stringValue())) return std::move(*bytes);
    }
  }
  return json;
}

JsonValue encodeEntry(const Value& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return JsonValue(*text);
  if (const auto* bytes = std::get_if<Bytes>(&value)) {
    return JsonValue(JsonValue::Object{{"data", JsonValue(base64Encode(*bytes))}});
  }
  return std::get<JsonValue>(value);
}

std::optional<std::string> textIn(const Entries& entries, std::string_view key) {
  const auto found = entries.find(key);
  if (found == entries.end()) return std::nullopt;
  if (const auto* text = std::get_if<std::string>(&found->second)) return *text;
  return std::nullopt;
}

std::optional<Bytes> bytesIn(const Entries& entries, std::string_view key) {
  const auto found = entries.find(key);
  if (found == entries.end()) return std::nullopt;
  if (const auto* bytes = std::get_if<Bytes>(&found->second)) return *bytes;
  return std::nullopt;
}

void store(Entries& entries, std::string_view key, Value value) {
  const auto found = entries.find(key);
  if (found != entries.end()) {
    found->second = std::move(value);
  } else {
    entries.emplace(std::string(key), std::move(value));
  }
}

bool isFileNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
         c == '_';
}

}  // namespace

std::filesystem::path standardUserDefaultsPath(const std::filesystem::path& directory,
                                               std::optional<std::string> applicationIdentifier) {
  std::string name = applicationIdentifier && !applicationIdentifier->empty()
                         ? std::move(*applicationIdentifier)
                         : std::string(fallbackApplicationIdentifier);
  for (char& c : name) {
    if (!isFileNameCharacter(c)) c = '_';
  }
  if (name.front() == '.') name.front() = '_';
  return directory / (name + ".defaults.json");
}

const std::shared_ptr<UserDefaults>& UserDefaults::standard() {
  static const std::shared_ptr<UserDefaults> defaults = std::make_shared<FileUserDefaults>(
      standardUserDefaultsPath(dataDirectory(), Bundle::main().bundleIdentifier()));
  return defaults;
}

// In memory.

struct InMemoryUserDefaults::State {
  mutable std::mutex mutex;
  Entries entries;
};

InMemoryUserDefaults::InMemoryUserDefaults() : state_(std::make_unique<State>()) {}
InMemoryUserDefaults::~InMemoryUserDefaults() = default;

std::optional<std::string> InMemoryUserDefaults::stringForKey(std::string_view key) const {
  std::lock_guard lock(state_->mutex);
  return textIn(state_->entries, key);
}

std::optional<Bytes> InMemoryUserDefaults::dataForKey(std::string_view key) const {
  std::lock_guard lock(state_->mutex);
  return bytesIn(state_->entries, key);
}

void InMemoryUserDefaults::setString(std::string value, std::string_view key) {
  std::lock_guard lock(state_->mutex);
  store(state_->entries, key, std::move(value));
}

void InMemoryUserDefaults::setData(Bytes value, std::string_view key) {
  std::lock_guard lock(state_->mutex);
  store(state_->entries, key, std::move(value));
}

void InMemoryUserDefaults::removeObject(std::string_view key) {
  std::lock_guard lock(state_->mutex);
  if (const auto found = state_->entries.find(key); found != state_->entries.end()) state_->entries.erase(found);
}

// In a file.

struct FileUserDefaults::State {
  explicit State(std::filesystem::path file) : path(std::move(file)) {}

  // Rewrites the file with the entries as they are now; the caller holds the lock.
  void write() {
    if (refusal) {
      lastWriteError = *refusal;
      return;
    }
    JsonValue::Object members;
    for (const auto& [key, value] : entries) members.emplace_back(key, encodeEntry(value));
    try {
      writeFileAtomically(path, toJsonText(JsonValue(std::move(members)), {.prettyPrinted = true}));
      lastWriteError.reset();
    } catch (const std::exception& error) {
      lastWriteError = error.what();
    }
  }

  const std::filesystem::path path;
  mutable std::mutex mutex;
  Entries entries;
  std::optional<std::string> lastWriteError;
  // Set when writing would destroy a file we could not read or keep aside.
  std::optional<std::string> refusal;
};

FileUserDefaults::FileUserDefaults(std::filesystem::path path) : state_(std::make_unique<State>(std::move(path))) {
  const auto& file = state_->path;
  std::optional<std::string> contents;
  try {
    contents = readFileIfPresent(file);
  } catch (const std::exception& error) {
    state_->refusal = std::string("not written: the existing file could not be read: ") + error.what();
    return;
  }
  if (!contents) return;
  std::optional<JsonValue> document;
  try {
    document = parseJson(*contents);
  } catch (const std::exception&) {
    document.reset();
  }
  if (!document || document->kind() != JsonValue::Kind::object) {
    std::filesystem::path aside = file;
    aside += ".malformed";
    std::error_code error;
    std::filesystem::rename(file, aside, error);
    if (error) {
      state_->refusal = "not written: the malformed file " + file.string() + " could not be moved aside: " +
                        error.message();
    }
    return;
  }
  // Later members with the same key win, as a reader keeping only the last one would.
  for (const auto& [key, value] : document->objectValue()) store(state_->entries, key, decodeEntry(value));
}

FileUserDefaults::~FileUserDefaults() = default;

const std::filesystem::path& FileUserDefaults::path() const { return state_->path; }

std::optional<std::string> FileUserDefaults::stringForKey(std::string_view key) const {
  std::lock_guard lock(state_->mutex);
  return textIn(state_->entries, key);
}

std::optional<Bytes> FileUserDefaults::dataForKey(std::string_view key) const {
  std::lock_guard lock(state_->mutex);
  return bytesIn(state_->entries, key);
}

void FileUserDefaults::setString(std::string value, std::string_view key) {
  std::lock_guard lock(state_->mutex);
  store(state_->entries, key, std::move(value));
  state_->write();
}

void FileUserDefaults::setData(Bytes value, std::string_view key) {
  std::lock_guard lock(state_->mutex);
  store(state_->entries, key, std::move(value));
  state_->write();
}

void FileUserDefaults::removeObject(std::string_view key) {
  std::lock_guard lock(state_->mutex);
  const auto found = state_->entries.find(key);
  if (found == state_->entries.end()) return;
  state_->entries.erase(found);
  state_->write();
}

std::optional<std::string> FileUserDefaults::lastWriteError() const {
  std::lock_guard lock(state_->mutex);
  return state_->lastWriteError;
}

}  // namespace velquist::foundation
