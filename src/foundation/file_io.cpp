#include "velquist/foundation/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>
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

}  // namespace velquist::foundation
