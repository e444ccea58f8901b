#pragma once

#include "velquist/export.h"
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "velquist/platform/sk_error.h"
#include "velquist/platform/sk_payment.h"
#include "velquist/platform/sk_product.h"
#include "velquist/storekit/product/product.h"
#include "velquist/support/dump.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The library's record of one purchase event the store reported: the store's transaction
/// itself (shared with the store, never copied or changed), the catalogue product it bought
/// when that product could be fetched, and whether the event starts a free trial.
///
/// Equality and hashing go over the three fields in order; the store transaction counts by
/// identity (the same object), not by its identifier, as the store's objects do.
///
///     Transaction record = makeTransaction(&skProduct, storeTransaction);
///     record.id();         // "1000", the store's identifier of the transaction
///     record.productID();  // "com.example.pro"
///     record.description();
///     // Transaction(
///     //   transaction: SKPaymentTransaction(
///     //     transactionIdentifier: "1000",
///     //     transactionState: SKPaymentTransactionState.purchased,
///     //     productIdentifier: "com.example.pro",
///     //     originalTransaction: nil
///     //   ),
///     //   product: Product(
///     //     ...
///     //   ),
///     //   isStartTrial: false
///     // )
///
/// A value type: copies share the store object, which is itself thread-safe; one record may
/// be read from many threads.
struct Transaction {
  std::shared_ptr<platform::SKPaymentTransaction> transaction;
  std::optional<Product> product;  ///< absent when the store product was not among those fetched
  bool isStartTrial = false;       ///< always false without a product

  /// The store's identifier of the transaction; absent while it has none (purchasing).
  std::optional<std::string> id() const;
  /// The product's identifier when there is a product, else the payment's product
  /// identifier; absent only for a record without a store transaction.
  std::optional<std::string> productID() const;
  /// The dump of the whole record (see above).
  std::string description() const;

  friend bool operator==(const Transaction&, const Transaction&) = default;
};

/// The record of a store transaction: with a store product, `product` is its conversion
/// (`makeProduct`) and `isStartTrial` the start-trial rule (`isStartTrial` below); without
/// one, no product and no trial. Never fails.
Transaction makeTransaction(const platform::SKProduct* product,
                            std::shared_ptr<platform::SKPaymentTransaction> transaction);
/// The same with the first of the fetched `products` whose identifier is the payment's
/// product identifier, if any.
Transaction makeTransaction(const std::vector<platform::SKProduct>& products,
                            std::shared_ptr<platform::SKPaymentTransaction> transaction);

/// Whether the transaction starts a free trial of `product`, by these rules in order:
/// 1. a promotional offer applied to the payment whose identifier names one of the
///    product's free-trial discounts: yes;
/// 2. otherwise, no introductory offer: no;
/// 3. an introductory free trial: yes unless the transaction continues an earlier
///    subscription (its original transaction has an identifier);
/// 4. any other introductory offer: no.
/// The transaction's state does not matter; callers decide which states count.
bool isStartTrial(const platform::SKPaymentTransaction& transaction, const platform::SKProduct& product);

/// The offer the payment used: the first of the product's discounts named by the
/// promotional offer applied to the payment, else the product's introductory offer (which
/// may be absent). At most one offer, despite the name.
std::optional<platform::SKProductDiscount> discounts(const platform::SKPaymentTransaction& transaction,
                                                     const platform::SKProduct& product);

/// The `transactionIdentifier` of the transaction's original transaction; absent when there
/// is no original or it has no identifier.
std::optional<std::string> originalTransactionID(const platform::SKPaymentTransaction& transaction);

/// The store transaction as text: its type, its original transaction (in the same form) or
/// nil, the payment's own text, and the state's name.
///
///     <SKPaymentTransaction original: nil, payment: <SKPayment productIdentifier: pro, quantity: 1>, transactionState: purchased>
std::string description(const platform::SKPaymentTransaction& transaction);

/// The state's name: "purchasing", "purchased", "failed", "restored", "deferred", and
/// "unknown" for any other value.
std::string_view description(platform::SKPaymentTransactionState state);

/// The record's dump shape: `Transaction(transaction: ..., product: ..., isStartTrial: ...)`.
support::DumpValue customDumpValue(const Transaction& transaction);

}  // namespace velquist::storekit

namespace velquist::platform {

// Dump shapes of the store's objects, found by argument-dependent lookup.

/// An object with the fields that identify it; the original transaction nests as an object.
///
///     SKPaymentTransaction(
///       transactionIdentifier: "1001",
///       transactionState: SKPaymentTransactionState.purchased,
///       productIdentifier: "com.example.pro",
///       originalTransaction: SKPaymentTransaction(
///         transactionIdentifier: "1000",
///         ...
///       )
///     )
support::DumpValue customDumpValue(const SKPaymentTransaction& transaction);
/// The state with its full type name even when nested: `SKPaymentTransactionState.failed`.
support::DumpValue customDumpValue(SKPaymentTransactionState state);
/// The store's error as the platform's error object: domain "SKErrorDomain", the code's
/// number and the message as its localized description.
///
///     NSError(
///       domain: "SKErrorDomain",
///       code: 7,
///       userInfo: [
///         "NSLocalizedDescription": "offline"
///       ]
///     )
support::DumpValue customDumpValue(const SKError& error);

}  // namespace velquist::platform

template <>
struct std::hash<velquist::storekit::Transaction> {
  std::size_t operator()(const velquist::storekit::Transaction& transaction) const;
};
VELQUIST_API_END
