#include "velquist/storekit/store/receipt.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "common/signal_recorder.h"
#include "velquist/foundation/bundle.h"

namespace velquist::storekit {
namespace {

namespace fs = std::filesystem;
using Bytes = std::optional<std::vector<std::uint8_t>>;

// The size, and the bytes themselves while few; a longer receipt by a fingerprint of its bytes.
std::string describe(const Bytes& bytes) {
  if (!bytes) return "absent";
  std::string text = std::to_string(bytes->size()) + " bytes:";
  if (bytes->size() > 8) {
    std::uint64_t hash = 14695981039346656037u;  // FNV-1a
    for (const std::uint8_t byte : *bytes) hash = (hash ^ byte) * 1099511628211u;
    return text + " fnv " + std::to_string(hash);
  }
  for (const std::uint8_t byte : *bytes) text += " " + std::to_string(byte);
  return text;
}

// `size` bytes in which no 16 KiB block repeats another.
std::string longReceipt(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 16384);
  return bytes;
}

std::vector<std::string> heardFor(const std::string& contents) {
  return {describe(std::vector<std::uint8_t>(contents.begin(), contents.end())), "completed"};
}

TEST(ReceiptData, EachStartReadsAfreshAbsentWithoutAFileFailedWhenUnreadable) {
  const fs::path folder = fs::temp_directory_path() / ("velquist-receipt-" + std::to_string(::getpid()));
  const fs::path receipt = folder / "receipt";
  fs::create_directories(folder);
  const auto producer = Receipt::receiptData();  // one producer, started for each example
  const std::vector<std::tuple<std::optional<fs::path>, std::optional<std::string>, std::vector<std::string>>> examples = {
      {std::nullopt, "A", {"absent", "completed"}},  // no receipt location
      {receipt, std::nullopt, {"absent", "completed"}},
      {receipt, "", {"0 bytes:", "completed"}},
      {receipt, std::string("\x00\xff\r\n", 4), {"4 bytes: 0 255 13 10", "completed"}},
      // Around the 16 KiB the file is read by at a time.
      {receipt, longReceipt(16384), heardFor(longReceipt(16384))},
      {receipt, longReceipt(16385), heardFor(longReceipt(16385))},
      {receipt, longReceipt(50000), heardFor(longReceipt(50000))},
      {folder, std::nullopt, {"failed: filesystem error: cannot read the store receipt: Is a directory [" + folder.string() + "]"}},
  };
  for (const auto& [url, contents, heard] : examples) {
    fs::remove_all(receipt);
    if (contents) std::ofstream(receipt, std::ios::binary) << *contents;
    foundation::Bundle::setMainAppStoreReceiptURL(url);
    testing::SignalRecorder<Bytes> recorder(describe);
    producer.start(recorder.handlers());
    EXPECT_EQ(recorder.events(), heard);  // read on this thread, before start returned
  }
  foundation::Bundle::setMainAppStoreReceiptURL(std::nullopt);
  fs::remove_all(folder);
}

}  // namespace
}  // namespace velquist::storekit
