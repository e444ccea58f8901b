#include "velquist/foundation/user_defaults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>
#include <variant>

#include "velquist/foundation/bundle.h"
#include "velquist/foundation/file_io.h"
#include "velquist/foundation/json.h"
#include "crc32c.h"

namespace velquist::foundation {
namespace {

using Bytes = UserDefaults::Bytes;

constexpr std::string_view base64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

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

// Text, or the text of a number or boolean kept from an earlier file.
std::optional<std::string> textIn(const Entries& entries, std::string_view key) {
  const auto found = entries.find(key);
  if (found == entries.end()) return std::nullopt;
  if (const auto* text = std::get_if<std::string>(&found->second)) return *text;
  if (const auto* json = std::get_if<JsonValue>(&found->second)) {
    if (json->kind() == JsonValue::Kind::number) return json->numberText();
    if (json->kind() == JsonValue::Kind::boolean) return std::string(json->boolValue() ? "1" : "0");
  }
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

std::uint64_t UserDefaults::changeCount() const {
  static std::atomic<std::uint64_t> counter = 0;
  return ++counter;
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
  std::uint64_t changeCount = 0;
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
  ++state_->changeCount;
  store(state_->entries, key, std::move(value));
}

void InMemoryUserDefaults::setData(Bytes value, std::string_view key) {
  std::lock_guard lock(state_->mutex);
  ++state_->changeCount;
  store(state_->entries, key, std::move(value));
}

void InMemoryUserDefaults::removeObject(std::string_view key) {
  std::lock_guard lock(state_->mutex);
  ++state_->changeCount;
  if (const auto found = state_->entries.find(key); found != state_->entries.end()) state_->entries.erase(found);
}

std::uint64_t InMemoryUserDefaults::changeCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->changeCount;
}


// Reports.

namespace {

struct Observers {
  std::mutex mutex;
  std::uint64_t next = 0;
  std::map<std::uint64_t, std::function<void(const UserDefaultsReport&)>> byNumber;
  std::deque<UserDefaultsReport> recent;  // told to observers added later
};

Observers& observers() {
  static Observers* const registry = new Observers();  // outlives every static that reports
  return *registry;
}

void tell(const std::vector<UserDefaultsReport>& reports) {
  for (const auto& report : reports) {
    std::vector<std::function<void(const UserDefaultsReport&)>> listening;
    {
      auto& registry = observers();
      std::lock_guard lock(registry.mutex);
      registry.recent.push_back(report);
      if (registry.recent.size() > 64) registry.recent.pop_front();
      for (const auto& [number, observer] : registry.byNumber) listening.push_back(observer);
    }
    for (const auto& observer : listening) observer(report);
  }
}

std::string entriesText(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

}  // namespace

std::string UserDefaultsReport::description() const {
  const std::string name = file.string();
  switch (kind) {
    case Kind::tornWrite:
      return name + ": the last write was cut short (" + reason + "); kept the " + entriesText(keptEntries) +
             " written before it";
    case Kind::damaged:
      return name + " is damaged (" + reason + "); kept " + entriesText(keptEntries) +
             (copy ? "; the damaged file is now " + copy->string() : std::string("; the damaged file is left in place"));
    case Kind::unreadable:
      return name + " cannot be used (" + reason + "); it is left as it is and nothing will be written to it";
    case Kind::inUse:
      return name + " is not used (" + reason + "); changes stay in memory";
    case Kind::writeFailed:
      return name + ": write failed (" + reason +
             "); the value is kept in memory (a later write that succeeds saves it)";
  }
  return name + ": " + reason;
}

std::uint64_t addUserDefaultsObserver(std::function<void(const UserDefaultsReport&)> observer) {
  std::vector<UserDefaultsReport> earlier;
  std::uint64_t number = 0;
  {
    auto& registry = observers();
    std::lock_guard lock(registry.mutex);
    number = ++registry.next;
    registry.byNumber.emplace(number, observer);
    earlier.assign(registry.recent.begin(), registry.recent.end());
  }
  for (const auto& report : earlier) observer(report);
  return number;
}

void removeUserDefaultsObserver(std::uint64_t observer) {
  auto& registry = observers();
  std::lock_guard lock(registry.mutex);
  registry.byNumber.erase(observer);
}

// In a file: the journal.

namespace {

constexpr std::string_view journalHeader = "velquist-defaults 1\n";
constexpr std::uint32_t largestPayload = std::uint32_t{1} << 30;
constexpr std::size_t smallestCompactedFile = std::size_t{8} << 20;

enum class Operation : std::uint8_t { setText = 1, setBytes = 2, remove = 3, setKept = 4 };

void putU32(std::string& out, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<char>((value >> shift) & 0xFF));
}

std::uint32_t u32At(std::string_view bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = (value << 8) | static_cast<std::uint8_t>(bytes[at + static_cast<std::size_t>(i)]);
  return value;
}

std::string_view valueBytes(const Value& value, std::string& scratch) {
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  if (const auto* bytes = std::get_if<Bytes>(&value)) {
    return {reinterpret_cast<const char*>(bytes->data()), bytes->size()};
  }
  scratch = toJsonText(std::get<JsonValue>(value));
  return scratch;
}

Operation operationFor(const Value& value) {
  if (std::holds_alternative<std::string>(value)) return Operation::setText;
  if (std::holds_alternative<Bytes>(value)) return Operation::setBytes;
  return Operation::setKept;
}

constexpr std::size_t recordOverhead = 4 + 4 + 1 + 4 + 4;

// One record: the payload's length and its checksum, the payload, the payload's checksum.
// Absent when the payload would be larger than a reader accepts.
std::optional<std::string> makeRecord(Operation operation, std::string_view key, std::string_view value) {
  const std::size_t payloadSize = 1 + 4 + key.size() + value.size();
  if (payloadSize > largestPayload) return std::nullopt;
  std::string record;
  record.reserve(recordOverhead + key.size() + value.size());
  putU32(record, static_cast<std::uint32_t>(payloadSize));
  putU32(record, detail::crc32c(std::string_view(record).substr(0, 4)));
  record.push_back(static_cast<char>(operation));
  putU32(record, static_cast<std::uint32_t>(key.size()));
  record += key;
  record += value;
  putU32(record, detail::crc32c(std::string_view(record).substr(8, payloadSize)));
  return record;
}

std::size_t recordSize(std::string_view key, const Value& value) {
  std::string scratch;
  return recordOverhead + key.size() + valueBytes(value, scratch).size();
}

// What a record at some offset of the file is.
struct Record {
  Operation operation;
  std::string_view key, value;
  std::size_t end;
};
enum class NoRecord { incomplete, bad };

std::variant<Record, NoRecord> recordAt(std::string_view file, std::size_t at) {
  const std::size_t remaining = file.size() - at;
  if (remaining < 8) return NoRecord::incomplete;
  const std::uint32_t length = u32At(file, at);
  if (detail::crc32c(file.substr(at, 4)) != u32At(file, at + 4)) return NoRecord::bad;
  if (length < 5 || length > largestPayload) return NoRecord::bad;
  if (remaining - 8 < std::size_t{length} + 4) return NoRecord::incomplete;
  const std::string_view payload = file.substr(at + 8, length);
  if (detail::crc32c(payload) != u32At(file, at + 8 + length)) return NoRecord::bad;
  const auto operation = static_cast<Operation>(payload[0]);
  const std::uint32_t keyLength = u32At(payload, 1);
  if (keyLength > length - 5) return NoRecord::bad;
  Record record{operation, payload.substr(5, keyLength), payload.substr(5 + keyLength), at + 8 + length + 4};
  switch (operation) {
    case Operation::setText:
    case Operation::setBytes:
      return record;
    case Operation::remove:
      if (record.value.empty()) return record;
      return NoRecord::bad;
    case Operation::setKept:
      try {
        static_cast<void>(parseJson(record.value));
        return record;
      } catch (const std::exception&) {
        return NoRecord::bad;
      }
  }
  return NoRecord::bad;
}

// The entries a journal's records leave, and what was wrong with it.
struct Replay {
  Entries entries;
  std::size_t goodEnd = journalHeader.size();  // where the records that check end, when nothing is damaged
  std::optional<std::string> tear;             // the last record is cut short
  std::optional<std::string> damage;           // the first damage found
};

void apply(Entries& entries, const Record& record) {
  switch (record.operation) {
    case Operation::setText:
      store(entries, record.key, std::string(record.value));
      break;
    case Operation::setBytes:
      store(entries, record.key, Bytes(record.value.begin(), record.value.end()));
      break;
    case Operation::remove:
      if (const auto found = entries.find(record.key); found != entries.end()) entries.erase(found);
      break;
    case Operation::setKept:
      store(entries, record.key, parseJson(record.value));  // checked by recordAt
      break;
  }
}

Replay replay(std::string_view file) {
  Replay result;
  std::size_t at = journalHeader.size();
  while (at < file.size()) {
    const auto found = recordAt(file, at);
    if (const auto* record = std::get_if<Record>(&found)) {
      apply(result.entries, *record);
      at = record->end;
      if (!result.damage) result.goodEnd = at;
      continue;
    }
    if (std::get<NoRecord>(found) == NoRecord::incomplete && !result.damage) {
      result.tear = "the record at byte " + std::to_string(at) + " is incomplete";
      return result;
    }
    if (!result.damage) result.damage = "a record that does not check at byte " + std::to_string(at);
    // Looks for the next record that checks, so every later write that survived is kept.
    do {
      ++at;
    } while (at < file.size() && !std::holds_alternative<Record>(recordAt(file, at)));
  }
  return result;
}

std::string osReason(int error) { return std::strerror(error); }

// Keeps a damaged file as "<file>.damaged-<n>", the first such name not taken: an earlier
// copy is never replaced. A hard link, so the damaged file stays where it was until the kept
// entries replace it atomically; a crash in between loses nothing. Where links are not
// possible, the file is renamed instead.
std::filesystem::path keepCopy(const std::filesystem::path& file) {
  for (int n = 1; n <= 100000; ++n) {
    std::filesystem::path copy = file;
    copy += ".damaged-" + std::to_string(n);
    if (::link(file.c_str(), copy.c_str()) == 0) return copy;
    if (errno == EEXIST) continue;
    if (::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, copy.c_str(), RENAME_NOREPLACE) == 0) return copy;
    if (errno == EEXIST) continue;
    throw std::filesystem::filesystem_error("cannot keep a copy of the damaged file", file, copy,
                                            std::error_code(errno, std::generic_category()));
  }
  throw std::filesystem::filesystem_error("no free name for a copy of the damaged file", file,
                                          std::make_error_code(std::errc::file_exists));
}

}  // namespace

struct FileUserDefaults::State {
  State(std::filesystem::path file, Options settings) : path(std::move(file)), options(settings) {}
  ~State() {
    if (fd >= 0) ::close(fd);
  }

  void report(UserDefaultsReport::Kind kind, std::string reason, std::optional<std::filesystem::path> copy = {}) {
    UserDefaultsReport made{kind, path, std::move(reason), entries.size(), std::move(copy)};
    reports.push_back(made);
    pending.push_back(std::move(made));
  }

  void writeFailed(std::string reason) {
    lastWriteError = reason;
    needsRewrite = true;
    report(UserDefaultsReport::Kind::writeFailed, std::move(reason));
  }

  // Reads the file as the object is made; the caller holds no lock (nobody else sees the
  // object yet).
  void open() {
    std::filesystem::path lockFile = path;
    lockFile += ".lock";
    try {
      lock.emplace(FileLock::acquire(lockFile, options.lockWait));
    } catch (const FileInUseError& error) {
      refusal = error.what();
      report(UserDefaultsReport::Kind::inUse, error.what());
      return;
    } catch (const std::exception& error) {
      refusal = std::string("cannot take the lock: ") + error.what();
      report(UserDefaultsReport::Kind::unreadable, *refusal);
      return;
    }
    struct stat link {};
    if (::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
      struct stat target {};
      if (::stat(path.c_str(), &target) != 0) {
        refusal = "a link to nothing is where the file should be (" + osReason(errno) + ")";
        report(UserDefaultsReport::Kind::unreadable, *refusal);
        return;
      }
    }
    std::optional<std::string> contents;
    try {
      contents = readFileIfPresent(path);
    } catch (const std::exception& error) {
      refusal = std::string("the existing file could not be read: ") + error.what();
      report(UserDefaultsReport::Kind::unreadable, *refusal);
      return;
    }
    if (!contents) return;  // written from scratch with the first change
    const std::string_view file = *contents;
    if (file.starts_with(journalHeader)) {
      openJournal(file);
    } else if (journalHeader.starts_with(file)) {
      // Only a beginning of the header: nothing was ever stored.
      report(UserDefaultsReport::Kind::tornWrite, "the file ends inside its first line");
    } else {
      migrate(file);
    }
  }

  void openJournal(std::string_view file) {
    Replay replayed = replay(file);
    entries = std::move(replayed.entries);
    if (replayed.damage) {
      keepAsideAndRewrite(*replayed.damage);
      return;
    }
    fileSize = replayed.goodEnd;
    if (replayed.tear) {
      // Drops the cut record so the next one follows the last whole one.
      const int out = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
      if (out < 0 || ::ftruncate(out, static_cast<off_t>(fileSize)) != 0) needsRewrite = true;
      if (out >= 0) ::close(out);
      report(UserDefaultsReport::Kind::tornWrite, *replayed.tear);
    }
    liveBytes = 0;
    for (const auto& [key, value] : entries) liveBytes += recordSize(key, value);
    openForAppending();
  }

  // The earlier form: one JSON object.
  void migrate(std::string_view file) {
    std::optional<JsonValue> document;
    try {
      document = parseJson(file);
    } catch (const std::exception& error) {
      keepAsideAndRewrite(std::string("neither a journal nor JSON: ") + error.what());
      return;
    }
    if (document->kind() != JsonValue::Kind::object) {
      keepAsideAndRewrite("neither a journal nor a JSON object");
      return;
    }
    // Later members with the same key win, as a reader keeping only the last one would.
    for (const auto& [key, value] : document->objectValue()) store(entries, key, decodeEntry(value));
    rewrite();
  }

  void keepAsideAndRewrite(std::string damage) {
    try {
      const auto copy = keepCopy(path);
      report(UserDefaultsReport::Kind::damaged, std::move(damage), copy);
      rewrite();
    } catch (const std::exception& error) {
      // Writing over the only copy would destroy the evidence: stay in memory.
      refusal = std::string("not written over the damaged file: ") + error.what();
      report(UserDefaultsReport::Kind::damaged, damage + "; " + error.what());
    }
  }

  void openForAppending() {
    if (fd >= 0) ::close(fd);
    fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0) needsRewrite = true;
  }

  // Writes every live entry to a new file that replaces the old one atomically.
  void rewrite() {
    std::string contents(journalHeader);
    std::string scratch;
    for (const auto& [key, value] : entries) {
      auto record = makeRecord(operationFor(value), key, valueBytes(value, scratch));
      if (record) contents += *record;
    }
    try {
      writeFileAtomically(path, contents);
    } catch (const std::exception& error) {
      writeFailed(error.what());
      return;
    }
    fileSize = liveBytes = contents.size();
    needsRewrite = false;
    lastWriteError.reset();
    openForAppending();
  }

  // Writes one change; the caller holds the lock and has changed `entries` already.
  std::vector<UserDefaultsReport> set(std::string_view key, Value value);

  void write(std::string_view key, const Value* value, std::size_t previousSize) {
    if (refusal) {
      lastWriteError = *refusal;
      report(UserDefaultsReport::Kind::writeFailed, *refusal);
      return;
    }
    const std::size_t newSize = value ? recordSize(key, *value) : 0;
    liveBytes = liveBytes - std::min(liveBytes, previousSize) + newSize;
    // A file removed behind our back would swallow the records: write a new one instead.
    struct stat status {};
    if (needsRewrite || fd < 0 || ::fstat(fd, &status) != 0 || status.st_nlink == 0) {
      rewrite();
      return;
    }
    std::string scratch;
    const auto record = value ? makeRecord(operationFor(*value), key, valueBytes(*value, scratch))
                              : makeRecord(Operation::remove, key, {});
    if (!record) {
      writeFailed("the value of " + std::string(key) + " is too large for the file");
      return;
    }
    std::string_view rest = *record;
    while (!rest.empty()) {
      const ssize_t written = ::write(fd, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) {
        const int error = errno;
        // A part of a record would stop the next one from being read: cut it off again.
        [[maybe_unused]] const int ignored = ::ftruncate(fd, static_cast<off_t>(fileSize));
        writeFailed("cannot write: " + osReason(error));
        return;
      }
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
    fileSize += record->size();
    if (options.durability == Durability::survivesPowerFailure && ::fdatasync(fd) != 0) {
      writeFailed("cannot flush to the device: " + osReason(errno));
      return;
    }
    lastWriteError.reset();
    if (fileSize > std::max(smallestCompactedFile, 4 * liveBytes)) rewrite();
  }

  const std::filesystem::path path;
  const Options options;
  mutable std::mutex mutex;
  Entries entries;
  std::uint64_t changeCount = 0;
  std::optional<std::string> lastWriteError;
  std::optional<std::string> refusal;  // why nothing may be written to the file
  std::vector<UserDefaultsReport> reports;
  std::vector<UserDefaultsReport> pending;  // told to the observers once the lock is let go
  std::optional<FileLock> lock;
  int fd = -1;                  // the file, opened for appending
  std::size_t fileSize = 0;     // bytes of whole records in the file
  std::size_t liveBytes = 0;    // what the live entries need as records
  bool needsRewrite = false;    // the next write rewrites the whole file
};

FileUserDefaults::FileUserDefaults(std::filesystem::path path) : FileUserDefaults(std::move(path), Options{}) {}

FileUserDefaults::FileUserDefaults(std::filesystem::path path, Options options)
    : state_(std::make_unique<State>(std::move(path), options)) {
  state_->open();
  if (state_->fd < 0) state_->needsRewrite = true;
  tell(std::exchange(state_->pending, {}));
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

namespace {

std::size_t sizeOf(const Entries& entries, std::string_view key) {
  const auto found = entries.find(key);
  return found == entries.end() ? 0 : recordSize(key, found->second);
}

}  // namespace

// Stores one value and appends its record; the reports the write made, for the caller to
// hand on once the lock is let go.
std::vector<UserDefaultsReport> FileUserDefaults::State::set(std::string_view key, Value value) {
  std::lock_guard guard(mutex);
  ++changeCount;
  const std::size_t previous = sizeOf(entries, key);
  store(entries, key, std::move(value));
  write(key, &entries.find(key)->second, previous);
  return std::exchange(pending, {});
}

void FileUserDefaults::setString(std::string value, std::string_view key) { tell(state_->set(key, std::move(value))); }
void FileUserDefaults::setData(Bytes value, std::string_view key) { tell(state_->set(key, std::move(value))); }

void FileUserDefaults::removeObject(std::string_view key) {
  std::vector<UserDefaultsReport> made;
  {
    std::lock_guard lock(state_->mutex);
    const auto found = state_->entries.find(key);
    if (found == state_->entries.end()) return;
    ++state_->changeCount;
    const std::size_t previous = recordSize(key, found->second);
    state_->entries.erase(found);
    state_->write(key, nullptr, previous);
    made = std::exchange(state_->pending, {});
  }
  tell(made);
}

std::uint64_t FileUserDefaults::changeCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->changeCount;
}

std::optional<std::string> FileUserDefaults::lastWriteError() const {
  std::lock_guard lock(state_->mutex);
  return state_->lastWriteError;
}

std::vector<UserDefaultsReport> FileUserDefaults::reports() const {
  std::lock_guard lock(state_->mutex);
  return state_->reports;
}

}  // namespace velquist::foundation
