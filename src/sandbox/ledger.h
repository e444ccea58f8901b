#pragma once

// The sandbox store's memory across launches: the clock and the transactions, kept as JSON
// in `ledger.json`, and the receipt the store hands to the app, `receipt.json`.

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "velquist/sandbox/sandbox_store.h"

namespace velquist::sandbox::detail {

struct Ledger {
  using Date = LedgerEntry::Date;

  /// The store's time when the ledger was last written.
  Date clock;
  /// The number the next transaction identifier gets.
  std::uint64_t nextIdentifier = 1;
  std::vector<LedgerEntry> entries;
  /// Prices the customer agreed to raise, by product, replacing the file's.
  std::map<std::string, Decimal> prices;

  friend bool operator==(const Ledger&, const Ledger&) = default;
};

/// The ledger kept in `path`, or absent when there is no such file. Throws
/// `std::runtime_error` naming the file, the JSON path and the reason when the file is not
/// a ledger; a file written by a later format version is refused the same way.
std::optional<Ledger> readLedger(const std::filesystem::path& path);
/// Replaces the ledger file atomically.
void writeLedger(const std::filesystem::path& path, const Ledger& ledger);

/// The receipt of every purchase and restore in the ledger, as JSON text: the bundle
/// identifier, when it was made, and one entry per purchased or restored transaction with
/// the fields a receipt validator reads: product, transaction and original transaction
/// identifiers, dates in ISO 8601 with milliseconds, quantity, the offer used and, for a
/// refunded one, the cancellation date and reason. A plan change waiting for the next
/// renewal is left out: it has charged nothing yet.
std::string receiptText(const Ledger& ledger, const std::optional<std::string>& bundleIdentifier);

/// "2026-11-21T21:45:05.120Z"
std::string iso8601Text(Ledger::Date date);

}  // namespace velquist::sandbox::detail
