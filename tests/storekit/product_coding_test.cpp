#include "velquist/storekit/product/product_coding.h"

#include <gtest/gtest.h>

#include "velquist/support/dump.h"

namespace velquist::storekit {
namespace {

using foundation::decodeFromJsonText;
using foundation::DecodingError;
using foundation::encodeToJsonText;
using Info = Product::SubscriptionInfo;
using Offer = Product::SubscriptionOffer;
using Period = Product::SubscriptionPeriod;
using Kind = DecodingError::Kind;

Offer winback() {
  return Offer{.id = Offer::ID("winback"),
               .type = Offer::OfferType::promotional,
               .price = *Decimal::fromString("4.99"),
               .priceLocale = Locale("en_US"),
               .displayPrice = "$4.99",
               .period = Period::month(3),
               .paymentMode = Offer::PaymentMode::payUpFront};
}

Offer trial() {
  return Offer{.id = std::nullopt,
               .type = Offer::OfferType::introductory,
               .price = Decimal(0),
               .priceLocale = Locale("en_PT@currency=EUR"),
               .displayPrice = "€0.00",
               .period = Period::week(1),
               .paymentMode = Offer::PaymentMode::freeTrial};
}

Info yearly() {
  return Info{.introductoryOffer = trial(),
              .subscriptionGroupID = "pro",
              .subscriptionPeriod = Period::year(1),
              .promotionalOffers = {winback(), winback()},
              .isEligibleForIntroOffer = true};
}

TEST(ProductCoding, WritesFieldNamesInDeclarationOrderAndOmitsAbsentOptionals) {
  EXPECT_EQ(encodeToJsonText(Period::week(1)), R"({"unit":1,"value":1})");  // not rewritten to 7 days
  EXPECT_EQ(encodeToJsonText(winback()),
            R"({"id":"winback","type":"promotional","price":4.99,"priceLocale":"en_US","displayPrice":"$4.99",)"
            R"("period":{"unit":2,"value":3},"paymentMode":"pay_up_front"})");
  EXPECT_EQ(encodeToJsonText(trial()),
            R"({"type":"introductory","price":0,"priceLocale":"en_PT@currency=EUR","displayPrice":"€0.00",)"
            R"("period":{"unit":1,"value":1},"paymentMode":"free_trial"})");
  Info bare = yearly();
  bare.introductoryOffer.reset();
  bare.promotionalOffers.clear();
  EXPECT_EQ(encodeToJsonText(bare),
            R"({"subscriptionGroupID":"pro","subscriptionPeriod":{"unit":3,"value":1},"promotionalOffers":[],)"
            R"("isEligibleForIntroOffer":true})");
  EXPECT_EQ(encodeToJsonText(Offer::PaymentMode::payAsYouGo), R"("pay_as_you_go")");
  EXPECT_EQ(encodeToJsonText(Offer::OfferType::introductory), R"("introductory")");
  EXPECT_EQ(encodeToJsonText(Period::Unit::year), "3");
}

template <class T>
void expectRoundTrip(const T& value) {
  const std::string json = encodeToJsonText(value);
  EXPECT_EQ(decodeFromJsonText<T>(json), value) << json;
}

TEST(ProductCoding, EveryTypeRoundTrips) {
  Info bare = yearly();
  bare.introductoryOffer.reset();
  bare.promotionalOffers.clear();
  bare.isEligibleForIntroOffer = false;
  Offer exact = winback();
  exact.price = *Decimal::fromString("260.3712140000000510976");
  Offer emptyID = winback();
  emptyID.id = Offer::ID("");

  for (const Info& info : {yearly(), bare}) expectRoundTrip(info);
  for (const Offer& offer : {winback(), trial(), exact, emptyID}) expectRoundTrip(offer);
  for (const Period& period : {Period::week(1), Period::day(0), Period::month(-3), Period::year(INT64_MAX)}) {
    expectRoundTrip(period);
  }
  for (auto type : support::CaseList<Offer::OfferType>::all) expectRoundTrip(type);
  for (auto mode : support::CaseList<Offer::PaymentMode>::all) expectRoundTrip(mode);
  for (auto unit : support::CaseList<Period::Unit>::all) expectRoundTrip(unit);

  // Exactness is kept to the last digit, not just numerically.
  EXPECT_EQ(decodeFromJsonText<Offer>(encodeToJsonText(exact)).price.description(), "260.3712140000000510976");
}

TEST(ProductCoding, OptionalKeysMayBeMissingOrNullAndUnknownKeysAreIgnored) {
  const auto offerWith = [](const std::string& id) {
    return decodeFromJsonText<Offer>("{" + id + R"("type":"promotional","price":4.99,"priceLocale":"en_US",)" +
                                     R"("displayPrice":"","period":{"unit":2,"value":3},"paymentMode":"pay_up_front",)" +
                                     R"("futureField":{"x":[1,2]}})");
  };
  EXPECT_EQ(offerWith("").id, std::nullopt);
  EXPECT_EQ(offerWith(R"("id":null,)").id, std::nullopt);
  EXPECT_EQ(offerWith(R"("id":"",)").id, Offer::ID(""));

  const Info nullIntro = decodeFromJsonText<Info>(
      R"({"introductoryOffer":null,"subscriptionGroupID":"g","subscriptionPeriod":{"value":1,"unit":0},)"
      R"("promotionalOffers":[],"isEligibleForIntroOffer":false,"extra":1})");
  EXPECT_EQ(nullIntro.introductoryOffer, std::nullopt);
  EXPECT_EQ(nullIntro.subscriptionPeriod, Period::day(1));
}

// Faults of the product records themselves: key names, raw values, required fields and the
// path through nested records. How each JSON type fails in general is the decoder's own business.
TEST(ProductCoding, FaultsAreReportedWithKindAndCodingPath) {
  const std::string offer =
      R"({"id":"w","type":"promotional","price":4.99,"priceLocale":"en_US","displayPrice":"$4.99",)"
      R"("period":{"unit":2,"value":3},"paymentMode":"pay_up_front"})";
  const std::string badMode = std::string(offer).replace(offer.find("pay_up_front"), 12, "freeTrial");
  const std::string withoutPeriod =
      R"({"type":"promotional","price":4.99,"priceLocale":"en_US","displayPrice":"$4.99","paymentMode":"free_trial"})";
  auto info = [](const std::string& offers, const std::string& rest = R"(,"isEligibleForIntroOffer":true)") {
    return R"({"subscriptionGroupID":"pro","subscriptionPeriod":{"unit":3,"value":1},"promotionalOffers":[)" +
           offers + "]" + rest + "}";
  };
  const struct {
    const char* name;
    std::function<void()> decode;
    Kind kind;
    const char *path, *description;  // a part of the description
  } cases[] = {
      {"flag has no default", [&] { decodeFromJsonText<Info>(info(offer, "")); }, Kind::keyNotFound, "",
       "\"isEligibleForIntroOffer\""},
      {"deep raw value", [&] { decodeFromJsonText<Info>(info(offer + "," + offer + "," + badMode)); },
       Kind::dataCorrupted, "promotionalOffers[2].paymentMode",
       "Cannot initialize PaymentMode from invalid String value freeTrial"},
      {"missing key inside an element", [&] { decodeFromJsonText<Info>(info(offer + "," + withoutPeriod)); },
       Kind::keyNotFound, "promotionalOffers[1]", "\"period\""},
      {"capitalised offer type",
       [] {
         decodeFromJsonText<Offer>(R"({"type":"Introductory","price":0,"priceLocale":"en_US","displayPrice":"",)"
                                   R"("period":{"unit":1,"value":1},"paymentMode":"free_trial"})");
       },
       Kind::dataCorrupted, "type", "Cannot initialize OfferType from invalid String value Introductory"},
      {"case name instead of raw value", [] { decodeFromJsonText<Offer::PaymentMode>(R"("payAsYouGo")"); },
       Kind::dataCorrupted, "", "Cannot initialize PaymentMode from invalid String value payAsYouGo"},
      {"unit out of range", [] { decodeFromJsonText<Period>(R"({"unit":4,"value":1})"); }, Kind::dataCorrupted,
       "unit", "Cannot initialize Unit from invalid Int value 4"},
      {"negative unit", [] { decodeFromJsonText<Period>(R"({"unit":-1,"value":1})"); }, Kind::dataCorrupted,
       "unit", "Cannot initialize Unit from invalid Int value -1"},
      {"unit as text", [] { decodeFromJsonText<Period>(R"({"unit":"month","value":1})"); }, Kind::typeMismatch,
       "unit", ""},
      {"period missing value", [] { decodeFromJsonText<Period>(R"({"unit":2})"); }, Kind::keyNotFound, "",
       "\"value\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      c.decode();
      ADD_FAILURE() << "decoded without an error";
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), c.kind) << error.what();
      EXPECT_EQ(error.codingPathText(), c.path) << error.what();
      EXPECT_NE(error.debugDescription().find(c.description), std::string::npos) << error.what();
    }
  }
}

}  // namespace
}  // namespace velquist::storekit
