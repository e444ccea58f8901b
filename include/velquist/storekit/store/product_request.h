#pragma once

#include "velquist/export.h"
#include <concepts>
#include <exception>
#include <initializer_list>
#include <ranges>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "velquist/platform/sk_product.h"
#include "velquist/support/signal_producer.h"

VELQUIST_API_BEGIN
namespace velquist::storekit {

/// The signal form of a products request: one list of store products, then completed; or
/// the store's error (any error).
using ProductsProducer = support::SignalProducer<std::vector<platform::SKProduct>, std::exception_ptr>;

namespace detail {
// The one request behind both forms of `products`.
std::vector<platform::SKProduct> requestProducts(const std::unordered_set<std::string>& identifiers,
                                                 std::stop_token stop);
// The producer behind both forms of `productsProducer`.
ProductsProducer productsProducer(std::unordered_set<std::string> identifiers);
}  // namespace detail

/// Fetches the store's products for some product identifiers (any range of text: a list, a
/// set, string views, ...) through one products request of the default store backend, and
/// waits for the answer. Duplicate identifiers are asked for once; identifiers the store
/// does not know are left out, so the result may be shorter than the question, or empty.
/// The products come in the store's order, not the order asked.
///
///     products({"com.example.pro", "com.example.pro", "nope"});
///     // {SKProduct{.productIdentifier = "com.example.pro", ...}}
///
/// Throws the store's error (`platform::SKError`) unchanged when the request fails, and
/// `support::CancellationError` when `stop` fires before the answer (the store's request
/// is then cancelled) or the request ends without an answer. A `stop` that has already
/// fired fails at once, every time, without asking the store.
///
/// Thread-safety: may be called from any thread, concurrently; it blocks the calling thread
/// (no other thread waits on its behalf) and holds no lock while waiting.
template <std::ranges::input_range Identifiers>
  requires std::convertible_to<std::ranges::range_reference_t<Identifiers>, std::string_view>
std::vector<platform::SKProduct> products(Identifiers&& identifiers, std::stop_token stop = {}) {
  std::unordered_set<std::string> set;
  for (auto&& identifier : identifiers) set.emplace(std::string_view(identifier));
  return detail::requestProducts(set, std::move(stop));
}

/// The same for a list written in place.
inline std::vector<platform::SKProduct> products(std::initializer_list<std::string_view> identifiers,
                                                 std::stop_token stop = {}) {
  return products(std::span(identifiers.begin(), identifiers.size()), std::move(stop));
}

/// The same request as a cold signal producer: nothing is asked before it is started, and
/// each start sends a products request of its own to the default store backend. The
/// subscriber hears the store's products (duplicates asked once, unknown identifiers left
/// out, the store's order) as one value followed by completed, or the store's error
/// (`platform::SKError`, unchanged) as the failure. Disposing the subscription before the
/// answer cancels the store's request, and nothing further is delivered.
///
///     productsProducer({"com.example.pro", "nope"})
///         .observeOn(scheduler)
///         .start({.value = [](std::vector<platform::SKProduct> found) { show(found); }});
///     // show gets {SKProduct{.productIdentifier = "com.example.pro", ...}}, on scheduler
///
/// Thread-safety: the producer may be started from any thread, any number of times. Its
/// events arrive on the thread of the store's answer (or, without a backend, on the
/// starting thread before `start` returns); use `observeOn` to pick a thread.
template <std::ranges::input_range Identifiers>
  requires std::convertible_to<std::ranges::range_reference_t<Identifiers>, std::string_view>
ProductsProducer productsProducer(Identifiers&& identifiers) {
  // The identifiers are copied now, so the producer may outlive the range it was made from.
  std::unordered_set<std::string> set;
  for (auto&& identifier : identifiers) set.emplace(std::string_view(identifier));
  return detail::productsProducer(std::move(set));
}

/// The same for a list written in place.
inline ProductsProducer productsProducer(std::initializer_list<std::string_view> identifiers) {
  return productsProducer(std::span(identifiers.begin(), identifiers.size()));
}

}  // namespace velquist::storekit
VELQUIST_API_END
