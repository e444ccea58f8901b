#include "velquist/storekit/store/receipt.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "velquist/foundation/bundle.h"

namespace velquist::storekit {
namespace {

using Bytes = std::vector<std::uint8_t>;

[[noreturn]] void throwReadError(const std::filesystem::path& path, int error) {
  throw std::filesystem::filesystem_error("cannot read the store receipt", path,
                                          std::error_code(error != 0 ? error : EIO, std::generic_category()));
}

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

Bytes readWholeFile(const std::filesystem::path& path) {
  errno = 0;
  const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file) throwReadError(path, errno);
  Bytes bytes;
  std::uint8_t chunk[16384];
  for (;;) {
    errno = 0;
    const std::size_t count = std::fread(chunk, 1, sizeof chunk, file.get());
    bytes.insert(bytes.end(), chunk, chunk + count);
    if (count == sizeof chunk) continue;
    if (std::ferror(file.get())) throwReadError(path, errno);  // a directory fails here
    return bytes;
  }
}

std::optional<Bytes> readReceipt() {
  const auto url = foundation::Bundle::main().appStoreReceiptURL();
  if (!url) return std::nullopt;
  std::error_code ignored;  // a path that cannot be looked at counts as no file there
  if (!std::filesystem::exists(*url, ignored)) return std::nullopt;
  return readWholeFile(*url);
}

}  // namespace

support::SignalProducer<std::optional<Bytes>, std::exception_ptr> Receipt::receiptData() {
  return support::SignalProducer<std::optional<Bytes>, std::exception_ptr>::attempt(readReceipt);
}

}  // namespace velquist::storekit
