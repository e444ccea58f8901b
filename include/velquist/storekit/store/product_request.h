#pragma once

#include <concepts>
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

namespace velquist::storekit {

namespace detail {
// The one request behind both forms of `products`.
std::vector<platform::SKProduct> requestProducts(const std::unordered_set<std::string>& identifiers,
                                                 std::stop_token stop);
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
/// is then cancelled) or the request ends without an answer.
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

}  // namespace velquist::storekit
