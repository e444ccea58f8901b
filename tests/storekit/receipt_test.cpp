#include "velquist/storekit/store/receipt.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/signal_recorder.h"
#include "velquist/foundation/bundle.h"

namespace velquist::storekit {
namespace {

namespace fs = std::filesystem;
using foundation::Bundle;
using Bytes = std::optional<std::vector<std::uint8_t>>;
using Events = std::vector<std::string>;

std::string describe(const Bytes& bytes) {
  if (!bytes) return "absent";
  std::string text = std::to_string(bytes->size()) + " bytes:";
  for (const std::uint8_t byte : *bytes) text += " " + std::to_string(byte);
  return text;
}

// The reason and the path of a read failure, and whether its message names the path.
std::string describeFailure(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const fs::filesystem_error& error) {
    const bool named = std::string(error.what()).find(error.path1().string()) != std::string::npos;
    return error.code().message() + " at " + error.path1().string() + (named ? "" : ", path left out of what()");
  } catch (...) {
    return "not a filesystem error";
  }
}

class ReceiptData : public ::testing::Test {
 protected:
  ReceiptData() {
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  ~ReceiptData() override {
    Bundle::setMainAppStoreReceiptURL(std::nullopt);
    fs::remove_all(folder);
  }
  static void write(const fs::path& path, const std::string& contents) {
    std::ofstream(path, std::ios::binary) << contents;
  }

  const fs::path folder = fs::temp_directory_path() / ("velquist-receipt-" + std::to_string(::getpid()));
};

TEST_F(ReceiptData, EachStartReadsAfreshAbsentWithoutAFileFailedWhenUnreadable) {
  const fs::path receipt = folder / "receipt";
  const auto producer = Receipt::receiptData();  // one producer, started for each example
  struct Example {
    std::string name;
    std::optional<fs::path> url;
    std::function<void()> prepare;
    Events heard;
  };
  const std::vector<Example> examples = {
      {"no receipt location", std::nullopt, [] {}, {"absent", "completed"}},
      {"no file there", receipt, [] {}, {"absent", "completed"}},
      {"no folder there", folder / "missing" / "receipt", [] {}, {"absent", "completed"}},
      {"empty file", receipt, [&] { write(receipt, ""); }, {"0 bytes:", "completed"}},
      {"bytes as they are", receipt, [&] { write(receipt, std::string("\x00\xff\r\n", 4)); },
       {"4 bytes: 0 255 13 10", "completed"}},
      {"rewritten", receipt, [&] { write(receipt, "A"); }, {"1 bytes: 65", "completed"}},
      {"a directory", folder, [] {},
       {"failed: Is a directory at " + folder.string()}},
  };
  for (const auto& example : examples) {
    SCOPED_TRACE(example.name);
    fs::remove_all(receipt);
    example.prepare();
    Bundle::setMainAppStoreReceiptURL(example.url);
    EXPECT_EQ(Bundle::main().appStoreReceiptURL(), example.url);
    testing::SignalRecorder<Bytes> recorder(describe, describeFailure);
    producer.start(recorder.handlers());
    EXPECT_EQ(recorder.events(), example.heard);  // read on this thread, before start returned
  }
}

}  // namespace
}  // namespace velquist::storekit
