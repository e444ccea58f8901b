#pragma once

#include "velquist/export.h"
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

VELQUIST_API_BEGIN
namespace velquist::foundation {

/// Where the library keeps its files on this machine: `$VELQUIST_HOME` when set and not
/// empty, else `$XDG_DATA_HOME/velquist`, else `~/.local/share/velquist` (`$HOME`), else
/// `.velquist` in the working folder. Read afresh on every call; nothing is created.
///
///     VELQUIST_HOME=/tmp/vh  ->  "/tmp/vh"
///     HOME=/home/ana         ->  "/home/ana/.local/share/velquist"
///
/// Thread-safety: safe from any thread as long as nobody changes the environment meanwhile.
std::filesystem::path dataDirectory();

/// Replaces the file at `path` with `contents` so that a crash at any instant leaves either
/// the old file or the new one, never a torn one: the bytes go to a temporary file beside
/// it, which is flushed to disk and then renamed over `path`; the folder is flushed last.
/// Missing parent folders are created. Throws `std::filesystem::filesystem_error` (naming
/// the path) when any step fails; the old file is then untouched.
///
/// Thread-safety: concurrent writers to one path (threads or processes) each leave a whole
/// file; the last rename wins.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents);

/// The whole content of the file at `path`, or absent when there is no such file. Throws
/// `std::filesystem::filesystem_error` when it exists but cannot be read (a folder, no
/// permission).
std::optional<std::string> readFileIfPresent(const std::filesystem::path& path);

/// Thrown by `FileLock::acquire` when another process holds the lock past the wait.
class FileInUseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An advisory lock (`flock`) that keeps other processes from writing the files it guards
/// while this one does: a process takes it on a lock file that is never renamed or replaced
/// (for example "<file>.lock" beside a file that compaction replaces), holds it as long as
/// the object lives, and writes its process id into it so a waiting process can name the
/// holder. Objects of one process on the same lock file share the lock (the second takes it
/// at once); the lock goes when the last of them does.
///
///     auto lock = FileLock::acquire("/d/state/.lock", std::chrono::seconds(5));
///     // another process: FileInUseError "/d/state/.lock is in use by process 4711 (waited 5000 ms)"
///
/// Thread-safety: `acquire` may be called from any thread; the object is not shared.
class FileLock {
 public:
  /// Takes the lock, waiting at most `wait` for another process to let go of it; creates
  /// the lock file (and its folders) when missing. Throws `FileInUseError` naming the holder
  /// when the wait ends without the lock, `std::filesystem::filesystem_error` when the lock
  /// file cannot be made or opened.
  static FileLock acquire(const std::filesystem::path& lockFile, std::chrono::milliseconds wait);

  FileLock(FileLock&&) noexcept;
  FileLock& operator=(FileLock&&) noexcept;
  ~FileLock();

  struct Held;  // internal: the process's descriptor of the lock file

 private:
  explicit FileLock(std::shared_ptr<Held> held);
  std::shared_ptr<Held> held_;
};

}  // namespace velquist::foundation
VELQUIST_API_END
