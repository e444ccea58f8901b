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

std::string describe(const Bytes& bytes) {
  if (!bytes) return "absent";
  std::string text = std::to_string(bytes->size()) + " bytes:";
  for (const std::uint8_t byte : *bytes) text += " " + std::to_string(byte);
  return text;
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
