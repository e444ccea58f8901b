#include "velquist/foundation/bundle.h"

#include <cstdlib>
#include <memory>
#include <mutex>

namespace velquist::foundation {

namespace {

constexpr std::string_view identifierKey = "CFBundleIdentifier";

// The dictionary the host set. Readers copy the pointer under the lock and read the
// dictionary after releasing it; a set dictionary is never changed, only replaced.
std::mutex mainMutex;
bool mainWasSet = false;                        // guarded by mainMutex
std::shared_ptr<const JsonValue> mainDictionary;  // guarded by mainMutex; null: none
std::optional<std::filesystem::path> mainReceiptURL;  // guarded by mainMutex

struct Snapshot {
  bool wasSet = false;
  std::shared_ptr<const JsonValue> dictionary;
};

Snapshot snapshot() {
  const std::lock_guard lock(mainMutex);
  return {mainWasSet, mainDictionary};
}

// The identifier the environment names when nothing was set; an empty value names none.
std::optional<std::string> environmentIdentifier() {
  const char* value = std::getenv("VELQUIST_BUNDLE_ID");
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

}  // namespace

Bundle Bundle::main() { return Bundle(); }

void Bundle::setMainInfoDictionary(std::optional<JsonValue> dictionary) {
  std::shared_ptr<const JsonValue> stored;
  if (dictionary && dictionary->kind() == JsonValue::Kind::object) {
    stored = std::make_shared<const JsonValue>(std::move(*dictionary));
  }
  const std::lock_guard lock(mainMutex);
  mainWasSet = dictionary.has_value();
  mainDictionary = std::move(stored);
}

void Bundle::setMainAppStoreReceiptURL(std::optional<std::filesystem::path> url) {
  const std::lock_guard lock(mainMutex);
  mainReceiptURL = std::move(url);
}

std::optional<std::filesystem::path> Bundle::appStoreReceiptURL() const {
  const std::lock_guard lock(mainMutex);
  return mainReceiptURL;
}

std::optional<JsonValue> Bundle::infoDictionary() const {
  const Snapshot current = snapshot();
  if (current.wasSet) {
    if (!current.dictionary) return std::nullopt;
    return *current.dictionary;
  }
  const auto identifier = environmentIdentifier();
  if (!identifier) return std::nullopt;
  return JsonValue(JsonValue::Object{{std::string(identifierKey), JsonValue(*identifier)}});
}

std::optional<JsonValue> Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  const Snapshot current = snapshot();
  if (current.wasSet) {
    if (!current.dictionary) return std::nullopt;
    const JsonValue* value = current.dictionary->find(key);
    if (value == nullptr) return std::nullopt;
    return *value;
  }
  if (key != identifierKey) return std::nullopt;
  const auto identifier = environmentIdentifier();
  if (!identifier) return std::nullopt;
  return JsonValue(*identifier);
}

std::optional<std::string> Bundle::bundleIdentifier() const {
  const Snapshot current = snapshot();
  if (!current.wasSet) return environmentIdentifier();
  if (!current.dictionary) return std::nullopt;
  const JsonValue* value = current.dictionary->find(identifierKey);
  if (value == nullptr || value->kind() != JsonValue::Kind::string) return std::nullopt;
  return value->stringValue();
}

}  // namespace velquist::foundation
