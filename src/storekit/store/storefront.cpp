#include "velquist/storekit/store/storefront.h"

#include "velquist/platform/sk_payment_queue.h"
#include "velquist/support/hasher.h"

namespace velquist::storekit {

std::optional<Storefront> Storefront::current() {
  auto storefront = platform::SKPaymentQueue::defaultQueue().storefront();
  if (!storefront) return std::nullopt;
  return Storefront(std::move(storefront->countryCode), std::move(storefront->identifier));
}

}  // namespace velquist::storekit

std::size_t std::hash<velquist::storekit::Storefront>::operator()(
    const velquist::storekit::Storefront& storefront) const {
  return velquist::support::Hasher().combine(storefront.countryCode()).combine(storefront.id()).finalize();
}
