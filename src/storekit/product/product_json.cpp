#include "velquist/storekit/product/product_json.h"

#include "velquist/storekit/product/product_coding.h"

namespace velquist::storekit {

foundation::JsonValue productJson(const Product& product) {
  using foundation::JsonValue;
  JsonValue::Object object{
      {"id", JsonValue(product.id.rawValue)},
      {"displayName", JsonValue(product.displayName)},
      {"description", JsonValue(product.description)},
      {"price", JsonValue(product.price.description())},
      {"priceLocale", JsonValue(product.priceLocale.identifier())},
      {"displayPrice", JsonValue(product.displayPrice)},
  };
  if (product.subscription) {
    object.emplace_back("subscription", foundation::parseJson(foundation::encodeToJsonText(*product.subscription)));
  }
  if (product.promotionalOfferID) object.emplace_back("promotionalOfferID", JsonValue(product.promotionalOfferID->rawValue));
  return JsonValue(std::move(object));
}

}  // namespace velquist::storekit
