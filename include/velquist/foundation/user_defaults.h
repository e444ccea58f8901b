#pragma once

#include "velquist/export.h"
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// A small persistent store of settings by key, each value either text or bytes. Asking
/// for a value of the other kind gives nothing, as does a key never set.
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

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Defaults kept in one JSON file. The file is read once, when the object is made; reads
/// are then answered from memory, and every change rewrites the whole file atomically
/// (`writeFileAtomically`), so a crash at any instant leaves the file as it was before or
/// after that change, never torn.
///
/// The file is a JSON object from key to value: text as a JSON string, bytes as an object
/// with the base64 text of the bytes (`{"ids": "a,b", "receipt": {"data": "AAEC"}}`). Text
/// that is not valid UTF-8 is written with U+FFFD in place of the bad bytes.
///
/// Bad contents never fail: a file that is not a JSON object is moved aside to
/// "<file>.malformed" (so nothing stored is lost) and the defaults start empty; an entry of
/// another shape is absent for reading but written back unchanged. When a write fails
/// (disk full, no permission) the change stays in memory and `lastWriteError` says why;
/// the file keeps its previous contents.
///
/// Thread-safety: every member may be called from any thread; changes are written in the
/// order they were made. Two objects over one file do not see each other's changes.
class FileUserDefaults final : public UserDefaults {
 public:
  explicit FileUserDefaults(std::filesystem::path path);
  ~FileUserDefaults() override;

  const std::filesystem::path& path() const;

  std::optional<std::string> stringForKey(std::string_view key) const override;
  std::optional<Bytes> dataForKey(std::string_view key) const override;
  void setString(std::string value, std::string_view key) override;
  void setData(Bytes value, std::string_view key) override;
  void removeObject(std::string_view key) override;

  /// Why the last write failed; absent when it succeeded (or nothing was written yet).
  std::optional<std::string> lastWriteError() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace velquist::foundation
VELQUIST_API_END
