#include "velquist/foundation/file_io.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <system_error>
#include <utility>

namespace velquist::foundation {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what, const fs::path& path, int error) {
  throw fs::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

// Owns a file descriptor; closes it on every path out.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  // Closes now so that a failing close is seen (some file systems report write errors there).
  int close() { return ::close(std::exchange(fd_, -1)); }

 private:
  int fd_;
};

void writeAll(int fd, std::string_view contents, const fs::path& path) {
  while (!contents.empty()) {
    const ssize_t written = ::write(fd, contents.data(), contents.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      fail("cannot write", path, errno);
    }
    contents.remove_prefix(static_cast<std::size_t>(written));
  }
}

// A name for the temporary file that no other thread or process picks at the same time.
fs::path temporaryPathFor(const fs::path& path) {
  static std::atomic<unsigned long> counter = 0;
  fs::path temporary = path;
  temporary += ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
  return temporary;
}

void syncFolder(const fs::path& folder) {
  const Descriptor fd(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A folder that cannot be opened for syncing (some file systems) still holds the renamed file.
  if (fd.get() >= 0) ::fsync(fd.get());
}

}  // namespace

fs::path dataDirectory() {
  if (auto home = environment("VELQUIST_HOME")) return fs::path(*home);
  if (auto data = environment("XDG_DATA_HOME")) return fs::path(*data) / "velquist";
  if (auto home = environment("HOME")) return fs::path(*home) / ".local" / "share" / "velquist";
  return fs::path(".velquist");
}

void writeFileAtomically(const fs::path& path, std::string_view contents) {
  const fs::path folder = path.parent_path();
  if (!folder.empty()) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw fs::filesystem_error("cannot create the folder", folder, error);
  }
  const fs::path temporary = temporaryPathFor(path);
  Descriptor fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (fd.get() < 0) fail("cannot create", temporary, errno);
  try {
    writeAll(fd.get(), contents, temporary);
    if (::fsync(fd.get()) != 0) fail("cannot flush", temporary, errno);
    if (fd.close() != 0) fail("cannot close", temporary, errno);
    if (::rename(temporary.c_str(), path.c_str()) != 0) fail("cannot replace", path, errno);
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
  syncFolder(folder);
}

std::optional<std::string> readFileIfPresent(const fs::path& path) {
  const Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno == ENOENT) return std::nullopt;
    fail("cannot open", path, errno);
  }
  std::string contents;
  char chunk[16384];
  for (;;) {
    const ssize_t count = ::read(fd.get(), chunk, sizeof chunk);
    if (count < 0) {
      if (errno == EINTR) continue;
      fail("cannot read", path, errno);  // a folder fails here with EISDIR
    }
    if (count == 0) return contents;
    contents.append(chunk, static_cast<std::size_t>(count));
  }
}

// The lock file's descriptor, shared by every `FileLock` of this process on that file: flock
// locks belong to an open file description, so a second descriptor in the same process would
// wait for the first.
struct FileLock::Held {
  Held(std::string key, int fd) : key(std::move(key)), fd(fd) {}
  ~Held();
  const std::string key;
  const int fd;
};

namespace {

// Never destroyed: the last owner of a lock may let go of it on a worker thread while the
// process exits, after static objects are gone.
std::mutex& heldLocksMutex() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}
std::map<std::string, std::weak_ptr<FileLock::Held>>& heldLocks() {
  static auto* const locks = new std::map<std::string, std::weak_ptr<FileLock::Held>>;
  return *locks;
}

std::string holderOf(int fd) {
  char text[32] = {};
  const ssize_t count = ::pread(fd, text, sizeof text - 1, 0);
  std::string pid(text, count > 0 ? static_cast<std::size_t>(count) : 0);
  while (!pid.empty() && (pid.back() == '\n' || pid.back() == ' ')) pid.pop_back();
  return pid.empty() ? "another process" : "process " + pid;
}

}  // namespace

FileLock::Held::~Held() {
  // Lets go of the lock first: a thread of this process may be waiting for it in `acquire`,
  // holding the registry's mutex.
  ::close(fd);
  std::lock_guard guard(heldLocksMutex());
  const auto found = heldLocks().find(key);
  if (found != heldLocks().end() && found->second.expired()) heldLocks().erase(found);
}

FileLock FileLock::acquire(const fs::path& lockFile, std::chrono::milliseconds wait) {
  const std::string key = fs::absolute(lockFile).lexically_normal().string();
  std::lock_guard guard(heldLocksMutex());
  if (const auto found = heldLocks().find(key); found != heldLocks().end()) {
    if (auto held = found->second.lock()) return FileLock(std::move(held));
  }
  if (const fs::path folder = lockFile.parent_path(); !folder.empty()) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw fs::filesystem_error("cannot create the folder", folder, error);
  }
  Descriptor fd(::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (fd.get() < 0) fail("cannot open the lock file", lockFile, errno);
  const auto deadline = std::chrono::steady_clock::now() + wait;
  while (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) fail("cannot lock", lockFile, errno);
    if (std::chrono::steady_clock::now() >= deadline) {
      throw FileInUseError(lockFile.string() + " is in use by " + holderOf(fd.get()) + " (waited " +
                           std::to_string(wait.count()) + " ms)");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  // Names the holder for whoever waits next; the lock holds even if this fails.
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd.get(), 0) == 0) {
    [[maybe_unused]] const ssize_t written = ::pwrite(fd.get(), pid.data(), pid.size(), 0);
  }
  auto held = std::make_shared<Held>(key, fd.release());
  heldLocks()[key] = held;
  return FileLock(std::move(held));
}

FileLock::FileLock(std::shared_ptr<Held> held) : held_(std::move(held)) {}
FileLock::FileLock(FileLock&&) noexcept = default;
FileLock& FileLock::operator=(FileLock&&) noexcept = default;
FileLock::~FileLock() = default;

}  // namespace velquist::foundation
