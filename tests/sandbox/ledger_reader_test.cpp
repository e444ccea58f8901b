// Opening the sandbox store over ledgers that are hostile or come from elsewhere, and over a
// state folder another process has open.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "velquist/foundation/file_io.h"
#include "velquist/sandbox/sandbox_store.h"

namespace velquist::sandbox {
namespace {

namespace fs = std::filesystem;

std::shared_ptr<SandboxStore> openIn(const fs::path& folder, std::chrono::milliseconds lockWait = std::chrono::seconds(10)) {
  return SandboxStore::open(fs::path(VELQUIST_SOURCE_DIR) / "examples/velquist_demo.storekit",
                            {.stateDirectory = folder, .lockWait = lockWait, .publishesReceipt = false});
}

fs::path freshFolder(const std::string& name) {
  const fs::path folder = fs::temp_directory_path() / ("velquist_ledger_" + name + "_" + std::to_string(::getpid()));
  fs::remove_all(folder);
  return folder;
}

std::string entry(const std::string& identifier, const std::string& original, const std::string& purchaseDate = "0") {
  return R"({"identifier":")" + identifier + R"(",)" + (original.empty() ? "" : R"("originalIdentifier":")" + original + R"(",)") +
         R"("productIdentifier":"com.velquist.demo.pro.monthly","quantity":1,"state":1,"purchaseDate":)" + purchaseDate +
         R"(,"expiresDate":2592000000,"offer":"none","offerPeriodIndex":0,"finished":false})";
}

std::string ledger(const std::string& clock, const std::string& entries) {
  return R"({"format":1,"clock":)" + clock + R"(,"nextIdentifier":9,"transactions":[)" + entries + "]}";
}

TEST(LedgerReader, RefusesBrokenLedgersDatesOutOfRangeAndOriginalsThatAreNotFirstPurchases) {
  const fs::path folder = freshFolder("refused");
  const std::pair<std::string, std::string> cases[] = {
      {"{", "not JSON"},
      {R"({"format":2})", "format: unsupported ledger format 2"},
      {R"({"format":1,"clock":0,"nextIdentifier":1,"transactions":[{"identifier":7}]})",
       "transactions[0].identifier: expected text"},
      {ledger("7258118400000", ""), "clock: date 7258118400000 is outside the store's range"},
      {ledger("-1", ""), "clock: date -1 is outside"},
      {ledger("9223372036854775807", ""), "clock: date 9223372036854775807 is outside"},
      {ledger("0", entry("1", "", "99999999999999999")), "transactions[0].purchaseDate: date 99999999999999999 is outside"},
      {ledger("0", entry("1", "1")), "transactions[0].originalIdentifier: the transaction names itself as its original"},
      {ledger("0", entry("1", "2") + "," + entry("2", "1")),
       "transactions[0].originalIdentifier: transactions 1 and 2 name each other as original (a cycle)"},
      {ledger("0", entry("1", "2") + "," + entry("2", "3") + "," + entry("3", "")),
       "transactions[0].originalIdentifier: the original transaction 2 is not a first purchase"},
  };
  for (const auto& [contents, message] : cases) {
    foundation::writeFileAtomically(folder / "ledger.json", contents);
    try {
      openIn(folder);
      ADD_FAILURE() << "opened: " << contents;
    } catch (const std::exception& error) {
      const std::string what = error.what();
      EXPECT_NE(what.find((folder / "ledger.json").string() + ": " + message), std::string::npos) << what;
    }
    EXPECT_EQ(foundation::readFileIfPresent(folder / "ledger.json"), contents);  // nothing written over it
  }
  // The latest date allowed, and a renewal naming its first purchase, are fine.
  foundation::writeFileAtomically(folder / "ledger.json",
                                  ledger("7258118399999", entry("1", "") + "," + entry("2", "1", "2592000000")));
  EXPECT_EQ(openIn(folder)->transactions().size(), 2u);
  fs::remove_all(folder);
}

// A second process waits for the first to let go of the folder, or is told who holds it.
TEST(LedgerReader, OneProcessAtATimeHasTheStateFolder) {
  // A death test's child runs this body again up to its statement: it must not take the
  // folder itself, nor make a new one.
  const char* inherited = std::getenv("VELQUIST_LEDGER_TEST_FOLDER");
  const fs::path folder = inherited ? fs::path(inherited) : freshFolder("locked");
  std::shared_ptr<SandboxStore> store;
  if (!inherited) store = openIn(folder);
  ::setenv("VELQUIST_LEDGER_TEST_FOLDER", folder.c_str(), 1);
  const std::string holder = "in use by process " + std::to_string(::getpid());  // only checked in the parent
  EXPECT_EXIT(
      {
        try {
          openIn(std::getenv("VELQUIST_LEDGER_TEST_FOLDER"), std::chrono::milliseconds(100));
        } catch (const foundation::FileInUseError& error) {
          std::fprintf(stderr, "%s\n", error.what());
          std::_Exit(3);
        }
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(3), holder);
  store.reset();  // let go: now another process opens the folder at once
  EXPECT_EXIT(
      {
        openIn(std::getenv("VELQUIST_LEDGER_TEST_FOLDER"), std::chrono::milliseconds(100));
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "");
  ::unsetenv("VELQUIST_LEDGER_TEST_FOLDER");
  fs::remove_all(folder);
}

}  // namespace
}  // namespace velquist::sandbox
