#pragma once

#include "velquist/export.h"
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// A small persistent store of settings by key, each value either text or bytes. Asking
/// for bytes of a text value gives nothing, as does a key never set; asking for the text of
/// bytes gives nothing, while a number or boolean kept from an earlier file reads as its
/// text ("42", "1").
///
///     auto defaults = std::make_shared<InMemoryUserDefaults>();
///     defaults->setString("a,b", "ids");
///     defaults->stringForKey("ids");  // "a,b"
///     defaults->dataForKey("ids");    // nothing: the value is text
///
/// Implementations must be safe to use from any thread: each call sees and leaves a whole
/// value (no torn reads or writes). Writes never throw.
class UserDefaults {
 public:
  using Bytes = std::vector<std::uint8_t>;

  virtual ~UserDefaults() = default;

  virtual std::optional<std::string> stringForKey(std::string_view key) const = 0;
  virtual std::optional<Bytes> dataForKey(std::string_view key) const = 0;
  virtual void setString(std::string value, std::string_view key) = 0;
  virtual void setData(Bytes value, std::string_view key) = 0;
  virtual void removeObject(std::string_view key) = 0;

  /// A number that changes with every change made through this object, so a reader can
  /// keep what it derived from a value until the number moves. The default, for stores that
  /// do not count, is a number that never repeats: every read looks like a change.
  virtual std::uint64_t changeCount() const;

  /// The application's own defaults, kept in a file under `dataDirectory()` named after the
  /// main bundle's identifier (`standardUserDefaultsPath`). Made on first use, with the
  /// data folder and bundle identifier of that moment, and kept until the process ends.
  static const std::shared_ptr<UserDefaults>& standard();
};

/// The identifier that names the defaults file when the main bundle has none.
inline constexpr std::string_view fallbackApplicationIdentifier = "velquist.application";

/// The file of an application's defaults in `directory`: "<identifier>.defaults.json", the
/// identifier (or `fallbackApplicationIdentifier` when absent or empty) with every
/// character other than ASCII letters, digits, '.', '-' and '_' replaced by '_', and a
/// leading '.' too, so the name always stays inside `directory`.
///
///     standardUserDefaultsPath("/home/ana/.local/share/velquist", "com.example.app")
///       -> "/home/ana/.local/share/velquist/com.example.app.defaults.json"
///     standardUserDefaultsPath("/d", "../x")  ->  "/d/_._x.defaults.json"
std::filesystem::path standardUserDefaultsPath(const std::filesystem::path& directory,
                                               std::optional<std::string> applicationIdentifier);

/// Defaults that live only as long as the object: the twin of `FileUserDefaults` for tests.
/// Thread-safe.
class InMemoryUserDefaults final : public UserDefaults {
 public:
  InMemoryUserDefaults();
  ~InMemoryUserDefaults() override;

  std::optional<std::string> stringForKey(std::string_view key) const override;
  std::optional<Bytes> dataForKey(std::string_view key) const override;
  void setString(std::string value, std::string_view key) override;
  void setData(Bytes value, std::string_view key) override;
  void removeObject(std::string_view key) override;
  std::uint64_t changeCount() const override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Something that went wrong with a defaults file, told to the host: through
/// `FileUserDefaults::reports()` and to every observer added with
/// `addUserDefaultsObserver` (the logging module adds one that writes each as one log line;
/// `vsk` prints them on standard error).
struct UserDefaultsReport {
  enum class Kind {
    tornWrite,    // the last write was cut short (the process died in it); every earlier one kept
    damaged,      // bytes that do not check; every record that checks kept, the file moved to `copy`
    unreadable,   // the file cannot be read, or is not a file; left as it is, nothing written
    inUse,        // another process holds the file's lock; nothing read or written
    writeFailed,  // a write did not reach the file; the value is kept in memory
  };
  Kind kind;
  std::filesystem::path file;
  std::string reason;
  std::size_t keptEntries = 0;                 // the entries in memory afterwards
  std::optional<std::filesystem::path> copy;   // where the damaged file went

  /// One line for a log or a terminal:
  ///
  ///     /d/app.defaults.json is damaged (bad checksum at byte 61); kept 2 entries; the damaged
  ///     file is now /d/app.defaults.json.damaged-1
  ///     /d/app.defaults.json: write failed (cannot write: No space left on device); the value
  ///     is kept in memory (a later write that succeeds saves it)
  std::string description() const;
};

/// Adds a process-wide observer of every `UserDefaultsReport` made from now on, and first
/// tells it the last reports made before it was added (up to 64), so an observer added
/// late still hears about a file opened early. Returns a number for
/// `removeUserDefaultsObserver`. The observer is called on the thread that made the report,
/// with no lock of the defaults held; it must not throw.
std::uint64_t addUserDefaultsObserver(std::function<void(const UserDefaultsReport&)> observer);
void removeUserDefaultsObserver(std::uint64_t observer);

/// Defaults kept in one file, a journal: every change appends one self-checking record, and
/// opening the file replays the records in order. Reads are answered from memory.
///
/// The file starts with the line "velquist-defaults 1"; then each record is
///
///     u32 length of the payload, u32 CRC-32C of those four bytes,
///     payload: u8 operation (1 text, 2 bytes, 3 removal, 4 an entry kept as JSON text),
///              u32 key length, key, value,
///     u32 CRC-32C of the payload
///
/// (integers little-endian). When the file grows past four times what its live entries
/// need (and past 8 MiB), it is compacted: the live entries are written to a new file that
/// replaces the old one atomically (`writeFileAtomically`). Records already in the file
/// are never rewritten in place.
///
/// Guarantees: a write that has returned survives the death of the process at any later
/// instant; with `Durability::survivesPowerFailure` it is on the device too. A file cut
/// short inside its last record keeps every earlier write (a `tornWrite` report; the cut
/// tail is dropped). Any other damage keeps every record that still checks, keeps the
/// damaged file under a new name beside it ("<file>.damaged-<n>", never over an earlier
/// copy), writes the kept entries back in its place and makes a `damaged` report. Files in the earlier JSON form (an
/// object from key to text, or to {"data": base64}) are read and rewritten as a journal;
/// their other entries stay, absent for reading except that numbers and booleans read as
/// their text. A write that fails (no space, no permission, a folder or a link to nothing
/// where the file should be) keeps the value in memory, makes a `writeFailed` report, and
/// the next write that succeeds rewrites the whole file with everything.
///
/// One process writes a file at a time: the object holds an advisory lock on
/// "<file>.lock" for its lifetime. Another process waits for it up to `Options::lockWait`,
/// then works in memory only, with an `inUse` report naming the holder. Objects of one
/// process over one file share the lock but not their entries (each sees its own changes).
///
/// Thread-safety: every member may be called from any thread; changes are written in the
/// order they were made.
class FileUserDefaults final : public UserDefaults {
 public:
  enum class Durability {
    /// Each record is handed to the operating system before the write returns: it survives
    /// the process being killed. A power failure may lose the writes the system had not yet
    /// put on the device (typically those of the last half minute); compaction still flushes.
    survivesProcessCrash,
    /// Each record is also flushed to the device (`fdatasync`) before the write returns.
    survivesPowerFailure,
  };
  struct Options {
    Durability durability = Durability::survivesProcessCrash;
    std::chrono::milliseconds lockWait = std::chrono::seconds(10);
  };

  explicit FileUserDefaults(std::filesystem::path path);
  FileUserDefaults(std::filesystem::path path, Options options);
  ~FileUserDefaults() override;

  const std::filesystem::path& path() const;

  std::optional<std::string> stringForKey(std::string_view key) const override;
  std::optional<Bytes> dataForKey(std::string_view key) const override;
  void setString(std::string value, std::string_view key) override;
  void setData(Bytes value, std::string_view key) override;
  void removeObject(std::string_view key) override;
  std::uint64_t changeCount() const override;

  /// Why the last write failed; absent when it succeeded (or nothing was written yet).
  std::optional<std::string> lastWriteError() const;
  /// Everything this object reported, oldest first.
  std::vector<UserDefaultsReport> reports() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace velquist::foundation
VELQUIST_API_END
